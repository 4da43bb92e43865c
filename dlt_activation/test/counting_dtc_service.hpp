#ifndef STRATA_DLT_ACTIVATION_TEST_COUNTING_DTC_SERVICE_HPP
#define STRATA_DLT_ACTIVATION_TEST_COUNTING_DTC_SERVICE_HPP

#include <cstdint>
#include <mutex>
#include <vector>

#include "dtc/dtc_service.hpp"

// Remembers every state that reaches the DTC service, whatever thread sends it.
class CountingDtcService final : public DTCService {
public:
    bool Startup() override { return true; }
    bool Shutdown() override { return true; }
    bool SetDTCState(std::uint8_t state, bool) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        states_.push_back(state);
        return true;
    }
    bool GetDTCState(std::uint8_t& state) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (states_.empty()) {
            return false;
        }
        state = states_.back();
        return true;
    }
    std::vector<std::uint8_t> states()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return states_;
    }

private:
    std::mutex mutex_;
    std::vector<std::uint8_t> states_;
};

#endif

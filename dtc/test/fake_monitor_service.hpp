#ifndef STRATA_DTC_TEST_FAKE_MONITOR_SERVICE_HPP
#define STRATA_DTC_TEST_FAKE_MONITOR_SERVICE_HPP

#include <mutex>
#include <vector>

#include "dtc/diagnostic_monitor_service_interface.hpp"

// A monitor provider that works like the real one as far as the DTC service can tell
// and remembers what was sent.
class FakeMonitorService final : public DiagnosticMonitorServiceInterface {
public:
    bool StartService() override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++starts;
        return start_result;
    }
    bool StopService() override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++stops;
        return stop_result;
    }
    void SendMonitorAction(bool failed) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        sent.push_back(failed);
    }
    std::vector<bool> sent_actions()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return sent;
    }

    bool start_result{true};
    bool stop_result{true};
    int starts{0};
    int stops{0};
    std::vector<bool> sent;

private:
    std::mutex mutex_;
};

#endif

#ifndef STRATA_DTC_TEST_LOOPBACK_RUNTIME_HPP
#define STRATA_DTC_TEST_LOOPBACK_RUNTIME_HPP

// Runs the communication runtime of a test process on loopback, with a service discovery
// port of its own so that test processes running side by side never see each other's
// offers.

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "vela/com/runtime/component_singleton.hpp"

inline std::string loopback_deployment()
{
    const int sd_port = 33000 + static_cast<int>(::getpid() % 16000);
    return R"({
  "network": { "unicast": "127.0.0.1", "port": 0, "client_id": 0 },
  "service_discovery": {
    "multicast": "224.244.224.245", "port": )" +
           std::to_string(sd_port) + R"(,
    "initial_delay_min_ms": 1, "initial_delay_max_ms": 5,
    "repetitions_base_delay_ms": 10, "repetitions_max": 3,
    "cyclic_offer_delay_ms": 500, "ttl_s": 3
  },
  "request_timeout_ms": 1000,
  "services": [
    {
      "name": "lumo::services::diagnosticdatadistribution::DiagnosticDataDistribution",
      "service_id": "0x1A2B", "major": 1, "minor": 0, "port": 0,
      "instances": { "1": 1 },
      "methods": { "getDiagnosticData": "0x0001", "getDiagnosticDataValues": "0x0002", "dataValuesHash.Get": "0x0003" },
      "events": { "dataValuesHash": { "id": "0x8001", "eventgroup": "0x0001", "field": true } }
    },
    {
      "name": "vela::dm::dem::DiagnosticMonitor",
      "service_id": "0x2E10", "major": 1, "minor": 0, "port": 0,
      "instances": { "12452": "0x30A4" },
      "methods": { "InitMonitor": "0x0001" },
      "events": { "MonitorAction": { "id": "0x8001", "eventgroup": "0x0001" } }
    }
  ]
})";
}

class LoopbackRuntime final : public ::testing::Environment {
public:
    void SetUp() override { vela::com::runtime::Component_singleton::startup(false, loopback_deployment()); }
    void TearDown() override { vela::com::runtime::Component_singleton::shutdown(); }
};

// Values delivered by middleware threads, waited for with a bound.
template <typename T>
class Arrivals {
public:
    void push(T value)
    {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            values_.push_back(std::move(value));
        }
        changed_.notify_all();
    }
    bool wait_for_count(std::size_t count, std::chrono::milliseconds limit = std::chrono::milliseconds(3000))
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return values_.size() >= count; });
    }
    std::vector<T> values()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return values_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<T> values_;
};

// For states the runtime offers no notification of (a subscription becoming active).
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds limit = std::chrono::milliseconds(3000))
{
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

#endif

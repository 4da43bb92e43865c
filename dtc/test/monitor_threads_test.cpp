#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "dtc/dms_adapter.hpp"
#include "dtc/dtc_service.hpp"
#include "dtc/dtc_service_impl.hpp"
#include "dtc/test/fake_monitor_service.hpp"
#include "dtc/test/loopback_runtime.hpp"

namespace {

const ::testing::Environment* const runtime = ::testing::AddGlobalTestEnvironment(new LoopbackRuntime);

// The diagnostic manager's InitMonitor runs the monitor callback on a middleware thread
// while the main thread reports flag changes: both reach the same DTC service at once.
// The race detector of the sanitizer build watches the service's state. Each side goes
// on until both have made their rounds, so that the two really overlap; the counters are
// relaxed so that they order nothing the detector could mistake for the service's lock.
// Here every report of either thread must reach the manager.
TEST(MonitorThreads, InitMonitorAndTheMainLoopReportTogether)
{
    constexpr int rounds = 500;
    auto monitor = std::make_shared<FakeMonitorService>();
    auto service = std::make_shared<DTCServiceImpl>(monitor);
    ASSERT_TRUE(service->Startup());
    set_dtc_service(service);
    std::atomic<bool> flag{false};
    std::size_t sent_count = 0;
    DMSAdapter adapter("12452", [&flag] { send_dtc(flag.load()); });
    std::atomic<int> middleware_rounds{0};
    std::atomic<int> main_rounds{0};
    const auto more = [](const std::atomic<int>& mine, const std::atomic<int>& other) {
        return mine.load(std::memory_order_relaxed) < rounds || other.load(std::memory_order_relaxed) < rounds;
    };
    testing::internal::CaptureStderr();
    // A busy machine may still run one side only while the other waits for a processor;
    // three tries make it unlikely that no two reports ever overlap.
    for (int attempt = 0; attempt < 3; ++attempt) {
        std::thread middleware([&] {
            for (; more(middleware_rounds, main_rounds); middleware_rounds.fetch_add(1, std::memory_order_relaxed)) {
                (void)adapter.InitMonitor(vela::dm::dem::InitMonitorReasonType::kRestart);
            }
        });
        for (; more(main_rounds, middleware_rounds); main_rounds.fetch_add(1, std::memory_order_relaxed)) {
            flag.store(main_rounds.load(std::memory_order_relaxed) % 2 == 0);
            send_dtc(flag.load());
        }
        middleware.join();
        sent_count += main_rounds.exchange(0) + middleware_rounds.exchange(0);
    }
    (void)testing::internal::GetCapturedStderr();
    set_dtc_service(nullptr);
    const std::vector<bool> sent = monitor->sent_actions();
    EXPECT_EQ(sent.size(), sent_count);
    std::uint8_t last = 2;
    ASSERT_TRUE(service->GetDTCState(last));
    EXPECT_EQ(last, sent.back() ? 1 : 0);
}

}  // namespace

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>

#include "dtc/dms_adapter.hpp"
#include "dtc/dtc_service.hpp"
#include "dtc/test/loopback_runtime.hpp"
#include "support/test/recording_logging_backend.hpp"
#include "vela/dm/dem/diagnosticmonitor_proxy.hpp"

namespace {

using vela::dm::dem::InitMonitorReasonType;
using vela::dm::dem::MonitorActionType;
using vela::dm::dem::proxy::DiagnosticMonitorProxy;

const ::testing::Environment* const runtime = ::testing::AddGlobalTestEnvironment(new LoopbackRuntime);

TEST(DmsAdapter, OnlyClearAndRestartAskForTheStateAgain)
{
    ScopedRecordingBackend recording;
    int calls = 0;
    DMSAdapter adapter("12452", [&calls] { ++calls; });
    testing::internal::CaptureStderr();
    for (const std::uint8_t reason : {0, 1, 2, 3, 7}) {
        auto done = adapter.InitMonitor(static_cast<InitMonitorReasonType>(reason));
        ASSERT_EQ(done.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    }
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(err,
              "+++++ DMSkeletonAdapter::InitMonitor( 0 = kClear) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 1 = kRestart) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 2 = kReenabled) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 3 = kStorageReenabled) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 7 = InitMonitor reason unknown) is called for 12452\n");
    const auto texts = recording.log->texts();
    EXPECT_EQ(
        std::count(texts.begin(), texts.end(), "+++++ DMSkeletonAdapter::InitMonitor calls updateDTCcb for 12452"), 2);
}

TEST(DmsAdapter, SaysWhetherItHasACallback)
{
    ScopedRecordingBackend recording;
    testing::internal::CaptureStderr();
    {
        DMSAdapter without("12452", nullptr);
        (void)without.InitMonitor(InitMonitorReasonType::kClear);
    }
    DMSAdapter with("12452", [] {});
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "+++++ DMSkeletonAdapter::constructor() is called for 12452\n"
              "+++++ DMSkeletonAdapter::Set updateDTCcb for 12452 No Callback available\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 0 = kClear) is called for 12452\n"
              "+++++ DMSkeletonAdapter::constructor() is called for 12452\n"
              "+++++ DMSkeletonAdapter::Set updateDTCcb for 12452 valid Callback is set\n");
}

// The diagnostic manager's side, in the same process.
class DiagnosticManager {
public:
    DiagnosticManager()
    {
        search_ = DiagnosticMonitorProxy::StartFindService(
            [this](vela::com::runtime::ServiceHandleContainer<DiagnosticMonitorProxy::HandleType> handles) {
                if (!handles.empty()) {
                    found_.push(handles.front());
                }
            },
            vela::com::runtime::InstanceSpecifier("12452"));
    }
    ~DiagnosticManager()
    {
        DiagnosticMonitorProxy::StopFindService(search_);
        if (proxy) {
            proxy->MonitorAction.Unsubscribe();
        }
    }
    DiagnosticManager(const DiagnosticManager&) = delete;
    DiagnosticManager& operator=(const DiagnosticManager&) = delete;

    bool connect()
    {
        if (!found_.wait_for_count(1)) {
            return false;
        }
        proxy = std::make_unique<DiagnosticMonitorProxy>(found_.values().front());
        proxy->MonitorAction.SetReceiveHandler([this] {
            (void)proxy->MonitorAction.GetNewSamples([this](const auto& sample) { actions.push(*sample); });
        });
        proxy->MonitorAction.Subscribe(10);
        return true;
    }

    // The subscription is known to be active once a state gets through; states sent
    // before that are not delivered at all, so the count afterwards is exact.
    bool prime(std::size_t& delivered)
    {
        const bool through = eventually([this] {
            send_dtc(false);
            return actions.wait_for_count(1, std::chrono::milliseconds(50));
        });
        delivered = actions.values().size();
        return through;
    }

    std::unique_ptr<DiagnosticMonitorProxy> proxy;
    Arrivals<MonitorActionType> actions;

private:
    vela::com::runtime::FindServiceHandle search_;
    Arrivals<DiagnosticMonitorProxy::HandleType> found_;
};

TEST(DtcOverTheWire, StatesReachTheManagerAndInitMonitorResendsTheCurrentOne)
{
    std::atomic<bool> flag{true};
    std::shared_ptr<DTCService> service = CreateDTCService("12452", [&flag] { send_dtc(flag.load()); });
    ASSERT_TRUE(service);
    set_dtc_service(service);
    ASSERT_TRUE(service->Startup());

    {
        DiagnosticManager manager;
        ASSERT_TRUE(manager.connect());
        std::size_t primed = 0;
        ASSERT_TRUE(manager.prime(primed));

        send_dtc(true);
        ASSERT_TRUE(manager.actions.wait_for_count(primed + 1));

        // The answer is bounded by the runtime's request time limit.
        manager.proxy->InitMonitor(InitMonitorReasonType::kRestart).get();
        ASSERT_TRUE(manager.actions.wait_for_count(primed + 2));

        manager.proxy->InitMonitor(InitMonitorReasonType::kReenabled).get();
        const auto actions = manager.actions.values();
        EXPECT_EQ(actions.front(), MonitorActionType::kPassed);
        EXPECT_EQ(std::vector<MonitorActionType>(actions.begin() + static_cast<std::ptrdiff_t>(primed), actions.end()),
                  (std::vector<MonitorActionType>{MonitorActionType::kFailed, MonitorActionType::kFailed}));
    }

    testing::internal::CaptureStderr();
    shutdown_dtc(1);
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("DTL launcher : Shutdown DTC\n"), std::string::npos);
    EXPECT_FALSE(get_dtc_service());
    EXPECT_EQ(service.use_count(), 1);
    std::uint8_t state = 0;
    EXPECT_FALSE(service->GetDTCState(state));
}

TEST(DtcOverTheWire, WithoutAServiceSendAndShutdownDoNothing)
{
    set_dtc_service(nullptr);
    testing::internal::CaptureStderr();
    send_dtc(true);
    shutdown_dtc(1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}  // namespace

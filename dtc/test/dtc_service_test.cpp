// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/launcher_types.hpp"
#include "dtc/dm_service.hpp"
#include "dtc/dms_adapter.hpp"
#include "dtc/dtc_service.hpp"
#include "dtc/dtc_service_impl.hpp"
#include "dtc/test/loopback_runtime.hpp"
#include "support/test/recording_logging_backend.hpp"

namespace {

const ::testing::Environment* const runtime = ::testing::AddGlobalTestEnvironment(new LoopbackRuntime);

// A provider that works like the real one as far as the service can tell.
struct FakeMonitorService final : DiagnosticMonitorServiceInterface {
    bool StartService() override { return ++starts, start_result; }
    bool StopService() override { return ++stops, stop_result; }
    void SendMonitorAction(bool failed) override { sent.push_back(failed); }
    bool start_result{true}, stop_result{true};
    int starts{0}, stops{0};
    std::vector<bool> sent;
};

// A state reaches the provider when it is the first since the start, a change, or forced;
// only while started. Every start forgets the last state.
TEST(DtcService, SendsFirstChangedAndForcedStatesOnlyWhileStarted)
{
    ScopedRecordingBackend recording;
    auto monitor = std::make_shared<FakeMonitorService>();
    auto service = std::make_shared<DTCServiceImpl>(monitor);
    std::uint8_t state = 9;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(service->SetDTCState(1, true));
    EXPECT_FALSE(service->GetDTCState(state));
    ASSERT_TRUE(service->Startup());
    EXPECT_TRUE(service->SetDTCState(1, false));
    EXPECT_TRUE(service->SetDTCState(1, false));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(service->SetDTCState(1, true));
    EXPECT_TRUE(service->SetDTCState(2, false));
    EXPECT_TRUE(service->SetDTCState(0, false));
    EXPECT_TRUE(service->GetDTCState(state));
    EXPECT_EQ(state, 0);
    ASSERT_TRUE(service->Shutdown());
    EXPECT_FALSE(service->GetDTCState(state));
    ASSERT_TRUE(service->Startup());
    EXPECT_TRUE(service->SetDTCState(0, false));
    EXPECT_EQ(monitor->sent, (std::vector<bool>{true, true, true, false, false}));
    EXPECT_EQ(err,
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 1\n"
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 0\n"
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 0 is sent to DM \n"
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 0\n");
    const std::vector<std::string> logged = recording.log->texts();
    for (const char* text :
         {"+++++ DTCServiceImpl::SetDTCState DTC_FAILED not sent, because Service is not started ",
          "+++++ DTCServiceImpl::SetDTCState DTC state unknown MonitorActionType = kFailed is sent to DM ",
          "+++++ DTCServiceImpl::SetDTCState DTC_PASSED MonitorActionType = kPassed is sent to DM "}) {
        EXPECT_NE(std::find(logged.begin(), logged.end(), text), logged.end()) << text;
    }
}

TEST(DtcService, RepeatedStartsAndStopsReachTheProviderOnceAndDestroyingStops)
{
    auto monitor = std::make_shared<FakeMonitorService>();
    auto service = std::make_unique<DTCServiceImpl>(monitor);
    monitor->start_result = false;
    EXPECT_FALSE(service->Startup());
    EXPECT_TRUE(service->Startup());
    monitor->stop_result = false;
    EXPECT_FALSE(service->Shutdown());
    EXPECT_TRUE(service->Shutdown());
    monitor->start_result = monitor->stop_result = true;
    ASSERT_TRUE(service->Startup());
    service.reset();
    EXPECT_EQ(monitor->starts, 2);
    EXPECT_EQ(monitor->stops, 2);
}

// The process-wide service: sends force every state, and only the DLT launcher shuts it down.
TEST(DtcService, SendAndShutdownGoThroughTheProcessWideService)
{
    testing::internal::CaptureStderr();
    send_dtc(true);
    shutdown_dtc(DLT);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "without a service";

    auto monitor = std::make_shared<FakeMonitorService>();
    auto service = std::make_shared<DTCServiceImpl>(monitor);
    ASSERT_TRUE(service->Startup());
    set_dtc_service(service);
    testing::internal::CaptureStderr();
    send_dtc(false);
    send_dtc(false);
    shutdown_dtc(PHM);
    send_dtc(true);
    shutdown_dtc(DLT);
    (void)testing::internal::GetCapturedStderr();
    EXPECT_EQ(monitor->sent, (std::vector<bool>{false, false, true}));
    EXPECT_EQ(monitor->stops, 1);
    EXPECT_FALSE(get_dtc_service());
}

TEST(DmsAdapter, OnlyClearAndRestartAskForTheStateAgain)
{
    int calls = 0;
    testing::internal::CaptureStderr();
    (void)DMSAdapter("12452", nullptr);
    DMSAdapter adapter("12452", [&calls] { ++calls; });
    for (const std::uint8_t reason : {0, 1, 2, 3, 7}) {
        (void)adapter.InitMonitor(static_cast<vela::dm::dem::InitMonitorReasonType>(reason));
    }
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "+++++ DMSkeletonAdapter::constructor() is called for 12452\n"
              "+++++ DMSkeletonAdapter::Set updateDTCcb for 12452 No Callback available\n"
              "+++++ DMSkeletonAdapter::constructor() is called for 12452\n"
              "+++++ DMSkeletonAdapter::Set updateDTCcb for 12452 valid Callback is set\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 0 = kClear) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 1 = kRestart) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 2 = kReenabled) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 3 = kStorageReenabled) is called for 12452\n"
              "+++++ DMSkeletonAdapter::InitMonitor( 7 = InitMonitor reason unknown) is called for 12452\n");
}

// InitMonitor handlers on middleware threads report the state through the process-wide
// service while the main thread reports flag changes and stops and starts the provider,
// which releases and creates the adapter the reports go through. A second thread drives
// the provider directly: it guards its adapter on its own, whoever calls it, and a caller
// outside the service's lock meets the adapter's creation and release far more often. The race detector of the
// sanitizer build watches the service's state and the provider's adapter; everything else
// shared here is relaxed, so that it orders nothing the detector could mistake for their
// locks.
TEST(MonitorThreads, ReportsFromBothSidesMeetRestartsOfTheProvider)
{
    std::atomic<bool> flag{false};
    std::atomic<bool> stop{false};
    const auto report = [&flag] { send_dtc(flag.load(std::memory_order_relaxed)); };
    const auto monitor = std::make_shared<DMService>("12452", report);
    const auto service = std::make_shared<DTCServiceImpl>(monitor);
    set_dtc_service(service);
    testing::internal::CaptureStderr();
    const auto repeat = [&stop](const std::function<void()>& step) {
        return std::thread([&stop, step] {
            while (!stop.load(std::memory_order_relaxed)) {
                step();
            }
        });
    };
    std::thread reporter = repeat(report);
    std::thread sender = repeat([&monitor] { monitor->SendMonitorAction(true); });
    for (int round = 0; round < 200; ++round) {
        EXPECT_TRUE(service->Startup());
        flag.store(round % 2 == 0, std::memory_order_relaxed);
        report();
        (void)service->Shutdown();
    }
    stop.store(true, std::memory_order_relaxed);
    reporter.join();
    sender.join();
    (void)testing::internal::GetCapturedStderr();
    set_dtc_service(nullptr);
}

}  // namespace

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "dtc/dtc_names.hpp"
#include "dtc/dtc_service_impl.hpp"
#include "dtc/test/fake_monitor_service.hpp"
#include "support/test/recording_logging_backend.hpp"

namespace {

using Texts = std::vector<std::string>;

bool contains(const Texts& texts, const std::string& wanted)
{
    for (const auto& text : texts) {
        if (text == wanted) {
            return true;
        }
    }
    return false;
}

class DtcServiceImpl : public ::testing::Test {
protected:
    ScopedRecordingBackend recording;
    std::shared_ptr<FakeMonitorService> monitor = std::make_shared<FakeMonitorService>();
    std::unique_ptr<DTCServiceImpl> service = std::make_unique<DTCServiceImpl>(monitor);
};

TEST_F(DtcServiceImpl, FirstStateAfterStartIsAlwaysSentAndRepeatsOnlyWhenForced)
{
    ASSERT_TRUE(service->Startup());
    testing::internal::CaptureStderr();
    EXPECT_TRUE(service->SetDTCState(1, false));
    EXPECT_TRUE(service->SetDTCState(1, false));
    EXPECT_TRUE(service->SetDTCState(1, true));
    EXPECT_TRUE(service->SetDTCState(0, false));
    const std::string err = testing::internal::GetCapturedStderr();

    EXPECT_EQ(monitor->sent_actions(), (std::vector<bool>{true, true, false}));
    EXPECT_EQ(err,
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 0\n"
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 0 is sent to DM \n"
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 0\n"
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 1\n"
              "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 1 is sent to DM \n"
              "===== DTCServiceImpl::SetDTCState()  state: 0 forceSet : 0\n"
              "===== DTCServiceImpl::SetDTCState()  state: 0 forceSet : 0 is sent to DM \n");
    const Texts logged = recording.log->texts();
    EXPECT_TRUE(
        contains(logged, "+++++ DTCServiceImpl::SetDTCState DTC_FAILED MonitorActionType = kFailed is sent to DM "));
    EXPECT_TRUE(contains(logged, "+++++ DTCServiceImpl::SetDTCState DTC_FAILED not sent "));
    EXPECT_TRUE(
        contains(logged, "+++++ DTCServiceImpl::SetDTCState DTC_PASSED MonitorActionType = kPassed is sent to DM "));
    EXPECT_TRUE(contains(logged, "===== DTCServiceImpl::SetDTCState()  state: 1 forceSet : 1"));
}

TEST_F(DtcServiceImpl, NothingIsStoredOrSentWhileStopped)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(service->SetDTCState(1, true));
    (void)testing::internal::GetCapturedStderr();
    std::uint8_t state = 9;
    EXPECT_FALSE(service->GetDTCState(state));
    EXPECT_EQ(state, 9);
    EXPECT_TRUE(monitor->sent_actions().empty());
    EXPECT_TRUE(contains(recording.log->texts(),
                         "+++++ DTCServiceImpl::SetDTCState DTC_FAILED not sent, because Service is not started "));
}

TEST_F(DtcServiceImpl, EveryStartForgetsTheLastState)
{
    testing::internal::CaptureStderr();
    ASSERT_TRUE(service->Startup());
    std::uint8_t state = 9;
    EXPECT_FALSE(service->GetDTCState(state));
    EXPECT_TRUE(service->SetDTCState(0, false));
    EXPECT_TRUE(service->GetDTCState(state));
    EXPECT_EQ(state, 0);
    EXPECT_TRUE(service->Shutdown());
    EXPECT_FALSE(service->GetDTCState(state));
    ASSERT_TRUE(service->Startup());
    EXPECT_TRUE(service->SetDTCState(0, false));
    (void)testing::internal::GetCapturedStderr();
    EXPECT_EQ(monitor->sent_actions(), (std::vector<bool>{false, false}));
}

TEST_F(DtcServiceImpl, RepeatedStartAndStopAreHarmlessAndReportTheProvidersResult)
{
    monitor->start_result = false;
    EXPECT_FALSE(service->Startup());
    EXPECT_TRUE(service->Startup());
    EXPECT_EQ(monitor->starts, 1);
    monitor->stop_result = false;
    EXPECT_FALSE(service->Shutdown());
    EXPECT_TRUE(service->Shutdown());
    EXPECT_EQ(monitor->stops, 1);
    const Texts logged = recording.log->texts();
    EXPECT_TRUE(contains(logged, "+++++ DTCServiceImpl::Startup() not executed, already started "));
    EXPECT_TRUE(contains(logged, "+++++ DTCServiceImpl::Shutdown() not executed, already stopped "));
}

TEST_F(DtcServiceImpl, DestroyingAStartedServiceStopsTheProviderFirst)
{
    ASSERT_TRUE(service->Startup());
    service.reset();
    EXPECT_EQ(monitor->stops, 1);
    const Texts logged = recording.log->texts();
    EXPECT_TRUE(contains(logged, "+++++ DTCServiceImpl not deactivated ... "));
    EXPECT_TRUE(contains(logged, "Result of shutdown for DTCService: true"));
    EXPECT_EQ(logged.back(), "+++++ DTCServiceImpl deleted ...");
    EXPECT_EQ(monitor.use_count(), 1);
}

TEST_F(DtcServiceImpl, ConcurrentStatesLeaveTheLastSentStateRemembered)
{
    ASSERT_TRUE(service->Startup());
    testing::internal::CaptureStderr();
    std::vector<std::thread> senders;
    for (int t = 0; t < 4; ++t) {
        senders.emplace_back([this, t] {
            for (int i = 0; i < 50; ++i) {
                (void)service->SetDTCState(static_cast<std::uint8_t>((t + i) % 2), true);
            }
        });
    }
    for (auto& sender : senders) {
        sender.join();
    }
    (void)testing::internal::GetCapturedStderr();
    const std::vector<bool> sent = monitor->sent_actions();
    ASSERT_EQ(sent.size(), 200U);
    std::uint8_t state = 9;
    ASSERT_TRUE(service->GetDTCState(state));
    EXPECT_EQ(state == 1, static_cast<bool>(sent.back()));
}

TEST(DtcNames, ValuesOutsideTheTablesGetAnUnknownName)
{
    EXPECT_EQ(dtc_state_name(1), "DTC_FAILED");
    EXPECT_EQ(monitor_action_name(9), "kClearPrestore");
    EXPECT_EQ(init_monitor_reason_name(3), "kStorageReenabled");
    EXPECT_EQ(init_monitor_reason_name(7), "InitMonitor reason unknown");
    EXPECT_EQ(dtc_state_name(2), "DTC state unknown");
}

}  // namespace

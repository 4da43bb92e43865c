#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "launcher/launcher.hpp"
#include "launcher/test/fake_strategy.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

namespace {

using testing::_;
using testing::Return;
using testing::StrictMock;

class Mock_em_handler : public EM_handler_interface {
public:
    MOCK_METHOD(bool, register_signal_handler, (Signal_handler handler), (override));
    MOCK_METHOD(void, report_ready, (), (override));
};

void some_handler(int) {}

class LauncherPass : public testing::Test {
protected:
    StrictMock<Mock_system_call_api> api;
    StrictMock<Mock_em_handler> em_handler;
    Strategy_record record;
};

TEST_F(LauncherPass, PrepareWithoutStrategyFails)
{
    Launcher launcher(&em_handler, &api);
    EXPECT_FALSE(launcher.prepare(nullptr));
}

TEST_F(LauncherPass, PrepareHandsApiAndItselfToStrategy)
{
    for (const bool result : {true, false}) {
        Fake_strategy strategy(record, result, true);
        Launcher launcher(&em_handler, &api);
        EXPECT_EQ(launcher.prepare(&strategy), result);
        EXPECT_EQ(record.api, &api);
        EXPECT_EQ(record.launcher, &launcher);
    }
}

TEST_F(LauncherPass, StartReportsReadyEvenWhenStrategyFails)
{
    for (const bool result : {true, false}) {
        Fake_strategy strategy(record, true, result);
        bool started_before_ready = false;
        EXPECT_CALL(em_handler, report_ready()).WillOnce([&] { started_before_ready = record.started > 0; });
        Launcher launcher(&em_handler, &api);
        ASSERT_TRUE(launcher.prepare(&strategy));
        EXPECT_EQ(launcher.start(), result);
        EXPECT_TRUE(started_before_ready);
        testing::Mock::VerifyAndClearExpectations(&em_handler);
    }
}

TEST_F(LauncherPass, StopStopsStrategyAndDeletesNothing)
{
    {
        Fake_strategy strategy(record, true, true);
        {
            Launcher launcher(&em_handler, &api);
            ASSERT_TRUE(launcher.prepare(&strategy));
            launcher.stop();
        }
        EXPECT_EQ(record.stopped, 1);
        EXPECT_EQ(record.deleted, 0);
    }
    EXPECT_EQ(record.deleted, 1);
}

TEST_F(LauncherPass, RegisterSignalsReportsFailureOnConsole)
{
    Launcher launcher(&em_handler, &api);
    EXPECT_CALL(em_handler, register_signal_handler(&some_handler)).WillOnce(Return(true)).WillOnce(Return(false));
    testing::internal::CaptureStderr();
    EXPECT_TRUE(launcher.register_signals(some_handler));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(launcher.register_signals(some_handler));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot register to system signals. Terminating Launcher.\n");
}

}  // namespace

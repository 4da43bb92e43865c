#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "launcher/em_handler.hpp"
#include "launcher/launcher_flags.hpp"
#include "launcher/signal_handler.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

namespace {

using testing::_;
using testing::Eq;
using testing::Return;
using testing::StrEq;
using testing::StrictMock;

class SignalHandler : public testing::Test {
protected:
    void SetUp() override { reset(false); }
    void TearDown() override { reset(false); }
    static void reset(bool value)
    {
        stop_flag.store(value);
        termination_flag.store(value);
        child_stop_flag.store(value);
    }
    static std::string handle(int signal)
    {
        testing::internal::CaptureStderr();
        signal_handler(signal);
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(SignalHandler, TerminationSignalsSetTerminationAndStop)
{
    for (const int signal : {SIGTERM, SIGINT}) {
        reset(false);
        child_stop_flag.store(true);
        EXPECT_EQ(handle(signal), "Launcher: Received SIGNAL" + std::to_string(signal) + "\n");
        EXPECT_TRUE(termination_flag.load());
        EXPECT_TRUE(stop_flag.load());
        EXPECT_FALSE(child_stop_flag.load());
    }
}

TEST_F(SignalHandler, ChildSignalSetsChildStopButNotTermination)
{
    EXPECT_EQ(handle(SIGCHLD), "Launcher: Received SIGNAL17\n");
    EXPECT_TRUE(child_stop_flag.load());
    EXPECT_TRUE(stop_flag.load());
    EXPECT_FALSE(termination_flag.load());
}

TEST_F(SignalHandler, TerminationAfterChildDeathClearsChildIndication)
{
    (void)handle(SIGCHLD);
    (void)handle(SIGTERM);
    EXPECT_FALSE(child_stop_flag.load());
    EXPECT_TRUE(termination_flag.load());
}

TEST_F(SignalHandler, OtherSignalOnlyClearsChildIndication)
{
    child_stop_flag.store(true);
    EXPECT_EQ(handle(SIGUSR1), "Launcher: Received SIGNAL" + std::to_string(SIGUSR1) + "\n");
    EXPECT_FALSE(child_stop_flag.load());
    EXPECT_FALSE(stop_flag.load());
    EXPECT_FALSE(termination_flag.load());
}

TEST_F(SignalHandler, KeepsErrnoOfInterruptedCode)
{
    errno = EAGAIN;
    (void)handle(SIGCHLD);
    EXPECT_EQ(errno, EAGAIN);
}

void some_handler(int) {}

struct Registration_case {
    int term_result;
    int int_result;
    int chld_result;
    bool expected;
};

TEST(EmHandler_RegisterSignalHandler, ResultRulesAndAllThreeCallsMade)
{
    const std::vector<Registration_case> cases{
        {0, 0, 0, true},  {1, 0, 0, true},   {-1, 0, 0, false}, {0, -1, 0, false},
        {0, 1, 0, false}, {0, 0, -1, false}, {0, 0, 2, false},  {-1, -1, -1, false},
    };
    for (const auto& c : cases) {
        StrictMock<Mock_system_call_api> api;
        testing::InSequence order;
        EXPECT_CALL(api, sigaction(SIGTERM, _, Eq(nullptr))).WillOnce(Return(c.term_result));
        EXPECT_CALL(api, sigaction(SIGINT, _, Eq(nullptr))).WillOnce(Return(c.int_result));
        EXPECT_CALL(api, sigaction(SIGCHLD, _, Eq(nullptr))).WillOnce(Return(c.chld_result));
        EM_handler handler(&api);
        EXPECT_EQ(handler.register_signal_handler(some_handler), c.expected)
            << c.term_result << " " << c.int_result << " " << c.chld_result;
    }
}

TEST(EmHandler_RegisterSignalHandler, PlainHandlerWithoutFlagsOrMask)
{
    StrictMock<Mock_system_call_api> api;
    EXPECT_CALL(api, sigaction(_, _, Eq(nullptr)))
        .Times(3)
        .WillRepeatedly([](int, const struct sigaction* action, struct sigaction*) {
            EXPECT_EQ(action->sa_handler, &some_handler);
            EXPECT_EQ(action->sa_flags, 0);
            for (int signal = 1; signal < NSIG; ++signal) {
                EXPECT_EQ(sigismember(&action->sa_mask, signal), 0) << signal;
            }
            return 0;
        });
    EM_handler handler(&api);
    EXPECT_TRUE(handler.register_signal_handler(some_handler));
}

TEST(EmHandler_ReportReady, SendsExactlyReadyWithLineEnd)
{
    StrictMock<Mock_system_call_api> api;
    EXPECT_CALL(api, sd_notify(0, StrEq("READY=1\n"))).WillOnce(Return(-1));
    EM_handler handler(&api);
    handler.report_ready();
}

}  // namespace

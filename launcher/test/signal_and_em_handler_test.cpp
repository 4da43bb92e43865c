#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "launcher/em_handler.hpp"
#include "launcher/launcher_flags.hpp"
#include "launcher/signal_handler.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

namespace {

using testing::_;
using testing::Eq;
using testing::Return;

// Each row starts from a child indication left by an earlier SIGCHLD.
TEST(SignalHandler, EverySignalClearsTheChildIndicationBeforeSettingItsFlags)
{
    struct Case {
        int signal;
        bool stop;
        bool termination;
        bool child_stop;
    };
    for (const Case& c : {Case{SIGTERM, true, true, false}, Case{SIGINT, true, true, false},
                          Case{SIGCHLD, true, false, true}, Case{SIGUSR1, false, false, false}}) {
        stop_flag.store(false);
        termination_flag.store(false);
        child_stop_flag.store(true);
        errno = EAGAIN;
        testing::internal::CaptureStderr();
        signal_handler(c.signal);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Launcher: Received SIGNAL" + std::to_string(c.signal) + "\n");
        EXPECT_EQ(stop_flag.load(), c.stop) << c.signal;
        EXPECT_EQ(termination_flag.load(), c.termination) << c.signal;
        EXPECT_EQ(child_stop_flag.load(), c.child_stop) << c.signal;
    }
    stop_flag.store(false);
    termination_flag.store(false);
    child_stop_flag.store(false);
}

void some_handler(int) {}

// sigaction's result counts as success when it is not negative for SIGTERM, but only when
// it is exactly 0 for SIGINT and SIGCHLD; all three are always asked for.
TEST(EmHandler, RegistersAllThreeSignalsAndJudgesEachResult)
{
    struct Case {
        int term_result;
        int int_result;
        int chld_result;
        bool expected;
    };
    for (const Case& c : {Case{0, 0, 0, true}, Case{1, 0, 0, true}, Case{-1, 0, 0, false}, Case{0, 1, 0, false},
                          Case{0, 0, -1, false}}) {
        testing::StrictMock<Mock_system_call_api> api;
        testing::InSequence order;
        EXPECT_CALL(api, sigaction(SIGTERM, _, Eq(nullptr))).WillOnce(Return(c.term_result));
        EXPECT_CALL(api, sigaction(SIGINT, _, Eq(nullptr))).WillOnce(Return(c.int_result));
        EXPECT_CALL(api, sigaction(SIGCHLD, _, Eq(nullptr))).WillOnce(Return(c.chld_result));
        EM_handler handler(&api);
        EXPECT_EQ(handler.register_signal_handler(some_handler), c.expected)
            << c.term_result << " " << c.int_result << " " << c.chld_result;
    }
}

}  // namespace

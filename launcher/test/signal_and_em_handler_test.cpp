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
using testing::Return;

// Each row starts from a child indication left by an earlier SIGCHLD.
TEST(SignalHandler, EverySignalClearsTheChildIndicationBeforeSettingItsFlags)
{
    for (const auto& [signal, stop, termination, child_stop] :
         {std::tuple{SIGTERM, true, true, false}, std::tuple{SIGINT, true, true, false},
          std::tuple{SIGCHLD, true, false, true}, std::tuple{SIGUSR1, false, false, false}}) {
        stop_flag.store(false);
        termination_flag.store(false);
        child_stop_flag.store(true);
        errno = EAGAIN;
        testing::internal::CaptureStderr();
        signal_handler(signal);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "Launcher: Received SIGNAL" + std::to_string(signal) + "\n");
        EXPECT_EQ(std::tuple(stop_flag.load(), termination_flag.load(), child_stop_flag.load()),
                  std::tuple(stop, termination, child_stop))
            << signal;
    }
}

void some_handler(int) {}

// sigaction's result counts as success when it is not negative for SIGTERM, but only when
// it is exactly 0 for SIGINT and SIGCHLD; all three are always asked for.
TEST(EmHandler, RegistersAllThreeSignalsAndJudgesEachResult)
{
    for (const auto& [term, interrupt, child, expected] :
         {std::tuple{1, 0, 0, true}, std::tuple{-1, 0, 0, false}, std::tuple{0, 1, 0, false}, std::tuple{0, 0, -1, false}}) {
        testing::StrictMock<Mock_system_call_api> api;
        testing::InSequence order;
        EXPECT_CALL(api, sigaction(SIGTERM, _, nullptr)).WillOnce(Return(term));
        EXPECT_CALL(api, sigaction(SIGINT, _, nullptr)).WillOnce(Return(interrupt));
        EXPECT_CALL(api, sigaction(SIGCHLD, _, nullptr)).WillOnce(Return(child));
        EXPECT_EQ(EM_handler(&api).register_signal_handler(some_handler), expected) << term << interrupt << child;
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/time.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <tuple>

#include "launcher/em_handler.hpp"
#include "launcher/launcher_flags.hpp"
#include "launcher/signal_handler.hpp"
#include "launcher/sleep_ms.hpp"
#include "process/system_call_api.hpp"

namespace {

// Every signal clears the indication of an earlier child's death before setting its own
// flags, and leaves errno as the interrupted code had it.
TEST(RealSignals, InstalledHandlerTurnsSignalsIntoFlags)
{
    System_call_api api;
    ASSERT_TRUE(EM_handler(&api).register_signal_handler(signal_handler));
    testing::internal::CaptureStderr();
    for (const auto& [signal, termination, child_stop] :
         {std::tuple{SIGCHLD, false, true}, std::tuple{SIGTERM, true, false}, std::tuple{SIGCHLD, false, true},
          std::tuple{SIGINT, true, false}}) {
        stop_flag.store(false);
        termination_flag.store(false);
        errno = EAGAIN;
        ASSERT_EQ(::raise(signal), 0);
        EXPECT_EQ(errno, EAGAIN);
        EXPECT_EQ(std::tuple(stop_flag.load(), termination_flag.load(), child_stop_flag.load()),
                  std::tuple(true, termination, child_stop))
            << signal;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Launcher: Received SIGNAL17\nLauncher: Received SIGNAL15\n"
              "Launcher: Received SIGNAL17\nLauncher: Received SIGNAL2\n");
    for (const int signal : {SIGTERM, SIGINT, SIGCHLD}) {
        (void)std::signal(signal, SIG_DFL);
    }
}

void ignore_signal(int) {}

TEST(SleepMs, SleepsTheWholeTimeThroughSignals)
{
    struct sigaction action {};
    action.sa_handler = ignore_signal;  // and no SA_RESTART: the sleep really is interrupted
    ASSERT_EQ(::sigaction(SIGALRM, &action, nullptr), 0);
    const itimerval every_20ms{{0, 20000}, {0, 20000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &every_20ms, nullptr), 0);
    const auto started = std::chrono::steady_clock::now();
    // Over a second, so that the whole seconds count as well as the rest.
    sleep_ms(1100);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    const itimerval off{};
    (void)::setitimer(ITIMER_REAL, &off, nullptr);
    (void)std::signal(SIGALRM, SIG_DFL);
    EXPECT_GE(elapsed, std::chrono::milliseconds(1100));
    EXPECT_LT(elapsed, std::chrono::milliseconds(4000));
}

}  // namespace

#include <gtest/gtest.h>

#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "launcher/em_handler.hpp"
#include "launcher/launcher_flags.hpp"
#include "launcher/signal_handler.hpp"
#include "launcher/sleep_ms.hpp"
#include "process/system_call_api.hpp"

namespace {

void restore_default_dispositions()
{
    for (const int signal : {SIGTERM, SIGINT, SIGCHLD, SIGUSR1}) {
        (void)std::signal(signal, SIG_DFL);
    }
}

class RealSignals : public testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override
    {
        restore_default_dispositions();
        reset();
    }
    static void reset()
    {
        stop_flag.store(false);
        termination_flag.store(false);
        child_stop_flag.store(false);
    }
    System_call_api api;
};

TEST_F(RealSignals, InstalledHandlerTurnsSignalsIntoFlags)
{
    EM_handler handler(&api);
    ASSERT_TRUE(handler.register_signal_handler(signal_handler));
    testing::internal::CaptureStderr();
    ASSERT_EQ(::raise(SIGCHLD), 0);
    EXPECT_TRUE(child_stop_flag.load());
    EXPECT_TRUE(stop_flag.load());
    EXPECT_FALSE(termination_flag.load());
    ASSERT_EQ(::raise(SIGINT), 0);
    EXPECT_TRUE(termination_flag.load());
    EXPECT_FALSE(child_stop_flag.load());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Launcher: Received SIGNAL17\nLauncher: Received SIGNAL2\n");
}

void ignore_signal(int) {}

TEST(SleepMs, SleepsTheWholeTimeThroughSignals)
{
    struct sigaction action {};
    action.sa_handler = ignore_signal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no restart: the sleep really is interrupted
    ASSERT_EQ(::sigaction(SIGUSR1, &action, nullptr), 0);
    const pthread_t sleeper = ::pthread_self();
    std::thread interrupter([sleeper] {
        for (int i = 0; i < 5; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            (void)::pthread_kill(sleeper, SIGUSR1);
        }
    });
    const auto started = std::chrono::steady_clock::now();
    sleep_ms(200);
    const auto elapsed = std::chrono::steady_clock::now() - started;
    interrupter.join();
    restore_default_dispositions();
    EXPECT_GE(elapsed, std::chrono::milliseconds(200));
    EXPECT_LT(elapsed, std::chrono::milliseconds(1000));
}

}  // namespace

#include <gtest/gtest.h>

#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
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

// Bounded wait for a child this test forked.
bool wait_child(pid_t pid, int& status)
{
    for (int i = 0; i < 500; ++i) {
        const pid_t reaped = ::waitpid(pid, &status, WNOHANG);
        if (reaped == pid) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    (void)::kill(pid, SIGKILL);
    (void)::waitpid(pid, &status, 0);
    return false;
}

TEST_F(RealSignals, UncaughtSignalKeepsDefaultAndEndsSilently)
{
    int error_pipe[2];
    ASSERT_EQ(::pipe(error_pipe), 0);
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        (void)::dup2(error_pipe[1], STDERR_FILENO);
        System_call_api child_api;
        EM_handler handler(&child_api);
        if (!handler.register_signal_handler(signal_handler)) {
            ::_exit(3);
        }
        (void)::raise(SIGHUP);
        ::_exit(4);
    }
    (void)::close(error_pipe[1]);
    int status = 0;
    ASSERT_TRUE(wait_child(child, status));
    char buffer[256];
    const ssize_t length = ::read(error_pipe[0], buffer, sizeof(buffer));
    (void)::close(error_pipe[0]);
    ASSERT_TRUE(WIFSIGNALED(status)) << "exit status " << WEXITSTATUS(status);
    EXPECT_EQ(WTERMSIG(status), SIGHUP);
    EXPECT_EQ(length, 0);
}

TEST(ReportReady, ReachesTheServiceManagersSocket)
{
    char directory[] = "/tmp/strata-notify.XXXXXX";
    ASSERT_NE(::mkdtemp(directory), nullptr);
    const std::string path = std::string(directory) + "/notify";
    const int receiver = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_NE(receiver, -1);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(::bind(receiver, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::setenv("NOTIFY_SOCKET", path.c_str(), 1), 0);

    System_call_api api;
    EM_handler(&api).report_ready();

    pollfd waiting{receiver, POLLIN, 0};
    char buffer[64] = {};
    const bool arrived = ::poll(&waiting, 1, 2000) == 1;
    const ssize_t length = arrived ? ::recv(receiver, buffer, sizeof(buffer), 0) : -1;
    (void)::unsetenv("NOTIFY_SOCKET");
    (void)::close(receiver);
    (void)::unlink(path.c_str());
    (void)::rmdir(directory);
    ASSERT_TRUE(arrived);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(length)), "READY=1\n");
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

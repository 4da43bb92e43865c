#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "process/daemon_handler.hpp"
#include "process/process_factory.hpp"
#include "process/system_call_api.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

using testing::_;
using testing::HasSubstr;
using testing::Not;

namespace {

const std::string probe = CHILD_PROBE_PATH;

bool wait_until_ended(Process_factory& factory, std::chrono::milliseconds bound = std::chrono::seconds(5))
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (factory.is_running()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        char name[] = "/tmp/strata-process-XXXXXX";
        path = ::mkdtemp(name);
    }
    ~TemporaryDirectory() { (void)std::system(("rm -rf '" + path + "'").c_str()); }
    std::string path;
};

class ProcessFactoryProcessTest : public testing::Test {
protected:
    // Starts the probe and returns the factory's console output once the child was reaped.
    std::string run_to_end(std::vector<std::string> arguments, const std::string& path = probe)
    {
        testing::internal::CaptureStderr();
        {
            Process_factory factory(&system_call);
            child = factory.create_process(path, arguments, {});
            EXPECT_GT(child, 0);
            EXPECT_TRUE(wait_until_ended(factory));
        }
        return testing::internal::GetCapturedStderr();
    }

    System_call_api system_call;
    pid_t child{-1};
};

TEST_F(ProcessFactoryProcessTest, ChildExitCodeIsReported)
{
    const std::string text = run_to_end({probe, "exit", "3"});
    EXPECT_THAT(text, HasSubstr("Launcher Process_factory: child process " + std::to_string(child) +
                                " terminated. Exit code: 3\n"));
    EXPECT_THAT(text, HasSubstr("Launcher Process_factory: waitpid called for child " + std::to_string(child) + "\n"));
}

TEST_F(ProcessFactoryProcessTest, IsRunningUntilTheKilledChildIsReaped)
{
    testing::internal::CaptureStderr();
    std::string text;
    {
        Process_factory factory(&system_call);
        EXPECT_FALSE(factory.is_running());
        std::vector<std::string> arguments{probe, "sleep"};
        child = factory.create_process(probe, arguments, {});
        ASSERT_GT(child, 0);
        EXPECT_TRUE(factory.is_running());
        ASSERT_EQ(system_call.kill(child, SIGKILL), 0);
        EXPECT_TRUE(wait_until_ended(factory));
        EXPECT_FALSE(factory.is_running());
    }
    text = testing::internal::GetCapturedStderr();
    EXPECT_THAT(text, HasSubstr("child process " + std::to_string(child) + " terminated. Status: 9\n"));
}

TEST_F(ProcessFactoryProcessTest, DestroyingTheFactoryWaitsForItsChild)
{
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    {
        Process_factory factory(&system_call);
        std::vector<std::string> arguments{probe, "sleep-ms", "300"};
        child = factory.create_process(probe, arguments, {});
        ASSERT_GT(child, 0);
    }
    const auto elapsed = std::chrono::steady_clock::now() - start;
    (void)testing::internal::GetCapturedStderr();
    EXPECT_GE(elapsed, std::chrono::milliseconds(300));
    // Already reaped by the factory: nothing is left to wait for.
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST_F(ProcessFactoryProcessTest, MissingExecutable_ChildReportsAndEndsWith127WithoutReturning)
{
    const std::string text = run_to_end({"no-such-daemon"}, "/nonexistent/strata/no-such-daemon");
    // The parent's lines may fall between the child's, so only the child's order is checked.
    const auto fork_done = text.find("LAUNCHER Process_factory: fork done childPID= 0\n");
    const auto failure = text.find("LAUNCHER Process_factory: execve returns FAILURE -1\n");
    const auto final_line = text.find("Process_factory:create process Fork PID= 0FINAL\n");
    ASSERT_NE(fork_done, std::string::npos) << text;
    ASSERT_NE(failure, std::string::npos) << text;
    ASSERT_NE(final_line, std::string::npos) << text;
    EXPECT_LT(fork_done, failure);
    EXPECT_LT(failure, final_line);
    EXPECT_THAT(text, HasSubstr(" terminated. Exit code: 127\n"));
    // A child that returned into this program would have run the tests again.
    EXPECT_THAT(text, Not(HasSubstr("[ RUN")));
    int status = 0;
    EXPECT_EQ(::waitpid(-1, &status, WNOHANG), -1) << "a second child exists";
}

TEST_F(ProcessFactoryProcessTest, ChildStartsWithDefaultSignalsAndWithoutLauncherDescriptors)
{
    TemporaryDirectory directory;
    const std::string report = directory.path + "/report";
    Daemon_handler readiness(directory.path + "/notify", &system_call);
    ASSERT_TRUE(readiness.init_socket_for_notify());
    int inheritable[2];
    ASSERT_EQ(::pipe(inheritable), 0);
    sigset_t blocked;
    sigset_t previous_mask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    ASSERT_EQ(::pthread_sigmask(SIG_BLOCK, &blocked, &previous_mask), 0);
    struct sigaction ignore {};
    struct sigaction previous_action {};
    ignore.sa_handler = SIG_IGN;
    ASSERT_EQ(::sigaction(SIGUSR2, &ignore, &previous_action), 0);

    const std::string text = run_to_end({probe, "report", report});

    (void)::sigaction(SIGUSR2, &previous_action, nullptr);
    (void)::pthread_sigmask(SIG_SETMASK, &previous_mask, nullptr);
    ::close(inheritable[0]);
    ::close(inheritable[1]);
    EXPECT_THAT(text, HasSubstr("Exit code: 0\n"));
    std::ifstream file(report);
    std::stringstream contents;
    contents << file.rdbuf();
    EXPECT_THAT(contents.str(), HasSubstr("SigBlk:\t0000000000000000\n"));
    EXPECT_THAT(contents.str(), HasSubstr("SigIgn:\t0000000000000000\n"));
    EXPECT_THAT(contents.str(), HasSubstr("fds: 0 1 2\n"));
}

TEST_F(ProcessFactoryProcessTest, ChildReportsReadinessThroughTheNotifySocketOfItsEnvironment)
{
    TemporaryDirectory directory;
    const std::string socket_path = directory.path + "/launch_daemon";
    Daemon_handler readiness(socket_path, &system_call);
    ASSERT_TRUE(readiness.init_socket_for_notify());
    testing::internal::CaptureStderr();
    bool ready = false;
    {
        Process_factory factory(&system_call);
        std::vector<std::string> arguments{probe, "notify", "READY=1\n"};
        child = factory.create_process(probe, arguments, {"NOTIFY_SOCKET=" + socket_path});
        ASSERT_GT(child, 0);
        ready = readiness.get_ready_child(3);
        EXPECT_TRUE(wait_until_ended(factory));
    }
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(ready);
    EXPECT_THAT(text, HasSubstr("[Daemon_handler]: get child_ready from " + socket_path + "\n"));
}

void ignore_signal(int) {}

TEST_F(ProcessFactoryProcessTest, TerminationArrivingBeforeExecReachesTheDaemonNotTheLaunchersHandler)
{
    // The launcher's own handler is installed when it forks; a termination that hits the
    // child before execve must not be swallowed by it.
    struct sigaction handler {};
    struct sigaction previous {};
    handler.sa_handler = ignore_signal;
    sigemptyset(&handler.sa_mask);
    ASSERT_EQ(::sigaction(SIGTERM, &handler, &previous), 0);
    testing::NiceMock<Mock_system_call_api> early_signal;
    ON_CALL(early_signal, fork()).WillByDefault([this] {
        const pid_t pid = system_call.fork();
        if (pid == 0) {
            (void)::raise(SIGTERM);
        }
        return pid;
    });
    ON_CALL(early_signal, execve(_, _, _)).WillByDefault([this](const char* path, char* const* argv, char* const* envp) {
        return system_call.execve(path, argv, envp);
    });
    ON_CALL(early_signal, waitpid(_, _, _)).WillByDefault([this](pid_t pid, int* status, int options) {
        return system_call.waitpid(pid, status, options);
    });
    ON_CALL(early_signal, create_thread(_, _)).WillByDefault([this](void* (*function)(void*), void* argument) {
        return system_call.create_thread(function, argument);
    });

    testing::internal::CaptureStderr();
    {
        Process_factory factory(&early_signal);
        std::vector<std::string> arguments{probe, "exit", "0"};
        child = factory.create_process(probe, arguments, {});
        EXPECT_GT(child, 0);
        EXPECT_TRUE(wait_until_ended(factory));
    }
    const std::string text = testing::internal::GetCapturedStderr();
    (void)::sigaction(SIGTERM, &previous, nullptr);
    EXPECT_THAT(text, HasSubstr("child process " + std::to_string(child) + " terminated. Status: 15\n"));
}

}  // namespace

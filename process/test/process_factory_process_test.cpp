#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "process/process_factory.hpp"
#include "process/system_call_api.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

using testing::_;
using testing::HasSubstr;

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

class ProcessFactoryProcessTest : public testing::Test {
protected:
    System_call_api system_call;
    pid_t child{-1};
};

// A strategy stopping a child that never started asks to signal pid -1; 0 and negative pids
// name process groups, every process included. Signal 0 keeps a broken guard harmless here.
TEST(SystemCallApi, NeverSignalsAProcessGroup)
{
    System_call_api system_call;
    for (const pid_t pid : {pid_t{0}, pid_t{-1}, -::getpgrp()}) {
        errno = 0;
        EXPECT_EQ(system_call.kill(pid, 0), -1) << pid;
        EXPECT_EQ(errno, EINVAL) << pid;
    }
    EXPECT_EQ(system_call.kill(::getpid(), 0), 0);
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

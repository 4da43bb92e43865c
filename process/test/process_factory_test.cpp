#include "process/process_factory.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>

#include "tests/mocks/mock_system_call_api.hpp"

using testing::_;
using testing::HasSubstr;
using testing::Invoke;
using testing::NiceMock;
using testing::Return;

namespace {

std::vector<std::string> lines_of(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    std::string line;
    while (std::getline(stream, line)) {
        lines.push_back(line);
    }
    return lines;
}

// The lines of one writer, in the order written, with other writers' lines dropped.
std::vector<std::string> lines_starting_with(const std::string& text, const std::vector<std::string>& prefixes)
{
    std::vector<std::string> kept;
    for (const std::string& line : lines_of(text)) {
        for (const std::string& prefix : prefixes) {
            if (line.rfind(prefix, 0) == 0) {
                kept.push_back(line);
                break;
            }
        }
    }
    return kept;
}

std::thread* start_real_thread(void* (*function)(void*), void* argument)
{
    return new std::thread([function, argument] { (void)function(argument); });
}

class ProcessFactoryTest : public testing::Test {
protected:
    void SetUp() override { ON_CALL(system_call, create_thread(_, _)).WillByDefault(Invoke(start_real_thread)); }

    // Runs create_process and returns what it wrote to standard error; the factory is
    // destroyed first so that the waiting thread's lines are complete.
    std::string run(const std::string& path, std::vector<std::string> arguments,
                    const std::vector<std::string>& environment, int* result, bool* running_after = nullptr)
    {
        testing::internal::CaptureStderr();
        {
            Process_factory factory(&system_call);
            *result = factory.create_process(path, arguments, environment);
            last_arguments = arguments;
            if (running_after != nullptr) {
                *running_after = factory.is_running();
            }
        }
        return testing::internal::GetCapturedStderr();
    }

    // A waitpid that reports the given wait status for the pid.
    void child_ends_with(pid_t pid, int wait_status)
    {
        EXPECT_CALL(system_call, waitpid(pid, _, 0)).WillOnce(Invoke([wait_status](pid_t child, int* status, int) {
            *status = wait_status;
            return child;
        }));
    }

    NiceMock<Mock_system_call_api> system_call;
    std::vector<std::string> last_arguments;
};

TEST_F(ProcessFactoryTest, NullSystemCall_ReturnsMinusOneWithoutAnyLine)
{
    Process_factory factory(nullptr);
    std::vector<std::string> arguments;
    testing::internal::CaptureStderr();
    EXPECT_EQ(factory.create_process("/usr/bin/com_daemon", arguments, {}), -1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(factory.is_running());
}

TEST_F(ProcessFactoryTest, ForkFailure_WritesCannotForkThenFinalAndStartsNoThread)
{
    EXPECT_CALL(system_call, fork()).WillOnce(Return(-1));
    EXPECT_CALL(system_call, create_thread(_, _)).Times(0);
    EXPECT_CALL(system_call, execve(_, _, _)).Times(0);
    int result = 0;
    bool running = true;
    const std::string text = run("/usr/bin/com_daemon", {}, {}, &result, &running);
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(running);
    EXPECT_EQ(text,
              "LAUNCHER PROCESS PATH: /usr/bin/com_daemon\n"
              "LAUNCHER Process_factory: fork done childPID= -1\n"
              "LAUNCHER ERROR: Process_factory: cannot fork new process and returning -1\n"
              "Process_factory:create process Fork PID= -1FINAL\n");
}

TEST_F(ProcessFactoryTest, ChildSide_EmptyArgumentsGetThePathAndExecveFailureReturnsMinusOne)
{
    std::vector<std::string> seen_argv;
    std::vector<std::string> seen_envp;
    bool argv_terminated = false;
    EXPECT_CALL(system_call, fork()).WillOnce(Return(0));
    EXPECT_CALL(system_call, execve(_, _, _))
        .WillOnce(Invoke([&](const char* path, char* const argv[], char* const envp[]) {
            EXPECT_STREQ(path, "/usr/bin/dlt-daemon");
            for (int index = 0; argv[index] != nullptr; ++index) {
                seen_argv.emplace_back(argv[index]);
            }
            argv_terminated = true;
            for (int index = 0; envp[index] != nullptr; ++index) {
                seen_envp.emplace_back(envp[index]);
            }
            errno = ENOENT;
            return -1;
        }));
    EXPECT_CALL(system_call, create_thread(_, _)).Times(0);
    int result = 0;
    const std::string text =
        run("/usr/bin/dlt-daemon", {}, {"NOTIFY_SOCKET=/tmp/x", "LD_LIBRARY_PATH=/usr/lib"}, &result);
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(argv_terminated);
    EXPECT_EQ(seen_argv, std::vector<std::string>{"/usr/bin/dlt-daemon"});
    EXPECT_EQ(last_arguments, std::vector<std::string>{"/usr/bin/dlt-daemon"});
    EXPECT_EQ(seen_envp, (std::vector<std::string>{"NOTIFY_SOCKET=/tmp/x", "LD_LIBRARY_PATH=/usr/lib"}));
    EXPECT_EQ(text,
              "LAUNCHER PROCESS PATH: /usr/bin/dlt-daemon\n"
              "LAUNCHER Process_factory: fork done childPID= 0\n"
              "LAUNCHER Process_factory: execve returns FAILURE -1\n"
              "Process_factory:create process Fork PID= 0FINAL\n");
}

TEST_F(ProcessFactoryTest, ChildSide_GivenArgumentsAreUsedAsTheyStandAndAnyOtherExecveResultIsReported)
{
    std::vector<std::string> seen_argv;
    EXPECT_CALL(system_call, fork()).WillOnce(Return(0));
    EXPECT_CALL(system_call, execve(_, _, _)).WillOnce(Invoke([&](const char*, char* const argv[], char* const[]) {
        for (int index = 0; argv[index] != nullptr; ++index) {
            seen_argv.emplace_back(argv[index]);
        }
        return 5;
    }));
    int result = 0;
    const std::string text = run("/usr/bin/com_daemon", {"com_daemon", "-c", "/etc/x.json"}, {}, &result);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(seen_argv, (std::vector<std::string>{"com_daemon", "-c", "/etc/x.json"}));
    EXPECT_THAT(text, HasSubstr("LAUNCHER Process_factory: execve returns good procid 5\n"
                                "Process_factory:create process Fork PID= 0FINAL\n"));
}

TEST_F(ProcessFactoryTest, ParentSide_ReturnsPidAndReportsExitCodeOfReapedChild)
{
    EXPECT_CALL(system_call, fork()).WillOnce(Return(1234));
    EXPECT_CALL(system_call, execve(_, _, _)).Times(0);
    child_ends_with(1234, 3 << 8);
    int result = 0;
    const std::string text = run("/usr/bin/quor_phmd", {"quor_phmd"}, {}, &result);
    EXPECT_EQ(result, 1234);
    EXPECT_EQ(lines_starting_with(text, {"LAUNCHER", "Process_factory"}),
              (std::vector<std::string>{"LAUNCHER PROCESS PATH: /usr/bin/quor_phmd",
                                        "LAUNCHER Process_factory: fork done childPID= 1234",
                                        "LAUNCHER Process_factory:create process Fork PID= 1234",
                                        "Process_factory:create process Fork PID= 1234FINAL"}));
    EXPECT_EQ(lines_starting_with(text, {"Launcher"}),
              (std::vector<std::string>{"Launcher Process_factory: waitpid for waiting now called for child 1234",
                                        "Launcher Process_factory: child process 1234 terminated. Exit code: 3",
                                        "Launcher Process_factory: waitpid called for child 1234"}));
}

TEST_F(ProcessFactoryTest, WaitingThread_ReportsSignalAndFailedWaitAsStatus)
{
    const struct {
        pid_t waitpid_result;
        int wait_status;
        const char* expected;
    } cases[] = {
        {77, 9, "Launcher Process_factory: child process 77 terminated. Status: 9"},
        {-1, 0, "Launcher Process_factory: child process 77 terminated. Status: -1"},
        {78, 0, "Launcher Process_factory: child process 77 terminated. Status: -1"},
    };
    for (const auto& scenario : cases) {
        EXPECT_CALL(system_call, fork()).WillOnce(Return(77));
        EXPECT_CALL(system_call, waitpid(77, _, 0)).WillOnce(Invoke([&scenario](pid_t, int* status, int) {
            *status = scenario.wait_status;
            errno = ECHILD;
            return scenario.waitpid_result;
        }));
        int result = 0;
        const std::string text = run("/usr/bin/quor_udpnmd", {}, {}, &result);
        EXPECT_EQ(result, 77);
        EXPECT_THAT(text, HasSubstr(std::string(scenario.expected) + "\n")) << scenario.waitpid_result;
    }
}

TEST_F(ProcessFactoryTest, WaitingThread_ResumesAWaitInterruptedBySignal)
{
    EXPECT_CALL(system_call, fork()).WillOnce(Return(55));
    EXPECT_CALL(system_call, waitpid(55, _, 0))
        .WillOnce(Invoke([](pid_t, int*, int) {
            errno = EINTR;
            return -1;
        }))
        .WillOnce(Invoke([](pid_t child, int* status, int) {
            *status = 0;
            return child;
        }));
    int result = 0;
    const std::string text = run("/usr/bin/quor_udpnmd", {}, {}, &result);
    EXPECT_THAT(text, HasSubstr("child process 55 terminated. Exit code: 0\n"));
}

TEST_F(ProcessFactoryTest, CreateProcess_LeavesTheCallersSignalMaskAsItWas)
{
    // The launcher must go on receiving its signals whatever fork returned.
    for (const pid_t fork_result : {pid_t{1234}, pid_t{0}, pid_t{-1}}) {
        EXPECT_CALL(system_call, fork()).WillOnce(Return(fork_result));
        sigset_t before;
        ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &before), 0);
        int result = 0;
        (void)run("/usr/bin/com_daemon", {}, {}, &result);
        sigset_t after;
        ASSERT_EQ(::pthread_sigmask(SIG_SETMASK, nullptr, &after), 0);
        for (int signal_number = 1; signal_number < SIGRTMIN; ++signal_number) {
            EXPECT_EQ(sigismember(&after, signal_number), sigismember(&before, signal_number))
                << "signal " << signal_number << " after fork result " << fork_result;
        }
    }
}

}  // namespace

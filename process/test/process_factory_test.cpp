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

// In the child: empty arguments become the path alone, given ones are used as they stand,
// and whatever execve returns is reported and becomes -1.
TEST_F(ProcessFactoryTest, ChildSide_ArgumentsEnvironmentAndExecveResult)
{
    struct Case {
        std::vector<std::string> arguments;
        std::vector<std::string> expected_argv;
        int execve_result;
        const char* expected_line;
    };
    for (const Case& c : {Case{{}, {"/usr/bin/dlt-daemon"}, -1, "LAUNCHER Process_factory: execve returns FAILURE -1\n"},
                          Case{{"dlt", "-c", "/etc/x.conf"}, {"dlt", "-c", "/etc/x.conf"}, 5,
                               "LAUNCHER Process_factory: execve returns good procid 5\n"}}) {
        std::vector<std::string> seen_argv;
        std::vector<std::string> seen_envp;
        EXPECT_CALL(system_call, fork()).WillOnce(Return(0));
        EXPECT_CALL(system_call, create_thread(_, _)).Times(0);
        EXPECT_CALL(system_call, execve(_, _, _))
            .WillOnce(Invoke([&](const char* path, char* const argv[], char* const envp[]) {
                EXPECT_STREQ(path, "/usr/bin/dlt-daemon");
                for (int index = 0; argv[index] != nullptr; ++index) {
                    seen_argv.emplace_back(argv[index]);
                }
                for (int index = 0; envp[index] != nullptr; ++index) {
                    seen_envp.emplace_back(envp[index]);
                }
                return c.execve_result;
            }));
        int result = 0;
        const std::string text = run("/usr/bin/dlt-daemon", c.arguments, {"NOTIFY_SOCKET=/tmp/x", "A=b"}, &result);
        EXPECT_EQ(result, -1);
        EXPECT_EQ(seen_argv, c.expected_argv);
        EXPECT_EQ(seen_envp, (std::vector<std::string>{"NOTIFY_SOCKET=/tmp/x", "A=b"}));
        EXPECT_EQ(text, std::string("LAUNCHER PROCESS PATH: /usr/bin/dlt-daemon\n"
                                    "LAUNCHER Process_factory: fork done childPID= 0\n") +
                            c.expected_line + "Process_factory:create process Fork PID= 0FINAL\n");
        testing::Mock::VerifyAndClearExpectations(&system_call);
    }
}

// In the parent: the pid, then the waiting thread's report of how the child ended; a wait
// interrupted by a signal is resumed.
TEST_F(ProcessFactoryTest, ParentSide_ReturnsThePidAndReportsHowTheChildEnded)
{
    struct Case {
        std::vector<std::pair<pid_t, int>> waits;  // result and status of each waitpid call
        const char* expected;
    };
    const std::vector<Case> cases{
        {{{77, 3 << 8}}, "Launcher Process_factory: child process 77 terminated. Exit code: 3\n"},
        {{{77, 9}}, "Launcher Process_factory: child process 77 terminated. Status: 9\n"},
        {{{-1, 0}}, "Launcher Process_factory: child process 77 terminated. Status: -1\n"},
        {{{78, 0}}, "Launcher Process_factory: child process 77 terminated. Status: -1\n"},
        {{{-1, 0}, {77, 0}}, "Launcher Process_factory: child process 77 terminated. Exit code: 0\n"},
    };
    for (const Case& c : cases) {
        EXPECT_CALL(system_call, fork()).WillOnce(Return(77));
        EXPECT_CALL(system_call, execve(_, _, _)).Times(0);
        auto& waits = EXPECT_CALL(system_call, waitpid(77, _, 0));
        for (std::size_t index = 0; index < c.waits.size(); ++index) {
            const auto [returned, wait_status] = c.waits[index];
            // A second call only follows an interrupted first one.
            const int error = index + 1 < c.waits.size() ? EINTR : ECHILD;
            waits.WillOnce(Invoke([returned = returned, wait_status = wait_status, error](pid_t, int* status, int) {
                *status = wait_status;
                errno = error;
                return returned;
            }));
        }
        int result = 0;
        const std::string text = run("/usr/bin/quor_phmd", {"quor_phmd"}, {}, &result);
        EXPECT_EQ(result, 77);
        EXPECT_THAT(text, HasSubstr(c.expected));
        EXPECT_EQ(lines_starting_with(text, {"LAUNCHER", "Process_factory"}),
                  (std::vector<std::string>{"LAUNCHER PROCESS PATH: /usr/bin/quor_phmd",
                                            "LAUNCHER Process_factory: fork done childPID= 77",
                                            "LAUNCHER Process_factory:create process Fork PID= 77",
                                            "Process_factory:create process Fork PID= 77FINAL"}));
        testing::Mock::VerifyAndClearExpectations(&system_call);
    }
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

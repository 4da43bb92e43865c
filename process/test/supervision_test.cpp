// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "process/daemon_handler.hpp"
#include "process/process_factory.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

using testing::_;
using testing::HasSubstr;
using testing::Return;
using Lines = std::vector<std::string>;

namespace {

const std::string notify_path = "/run/test/ara_COM/com_launch_daemon";
constexpr int receive_flags = MSG_DONTWAIT | MSG_TRUNC | MSG_CMSG_CLOEXEC;

class Supervision : public testing::Test {
protected:
    void SetUp() override
    {
        // The handler closes its descriptor with the real close: hand out real ones.
        ON_CALL(api, socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)).WillByDefault([] {
            return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
        });
        ON_CALL(api, create_thread(_, _)).WillByDefault(real_thread);
    }

    // Runs create_process and returns its result; the factory is gone, its lines complete.
    int create(Lines arguments, const Lines& environment, System_call_api_interface* system_call)
    {
        sigset_t before;
        sigset_t after;
        (void)::pthread_sigmask(SIG_SETMASK, nullptr, &before);
        testing::internal::CaptureStderr();
        int result = 0;
        {
            Process_factory factory(system_call);
            result = factory.create_process("/usr/bin/dlt-daemon", arguments, environment);
            (void)::pthread_sigmask(SIG_SETMASK, nullptr, &after);
            EXPECT_TRUE(result > 0 || !factory.is_running());
        }
        text = testing::internal::GetCapturedStderr();
        // The launcher must go on receiving its signals whatever fork returned.
        for (int signal_number = 1; signal_number < SIGRTMIN; ++signal_number) {
            EXPECT_EQ(sigismember(&after, signal_number), sigismember(&before, signal_number)) << signal_number;
        }
        return result;
    }

    testing::NiceMock<Mock_system_call_api> api;
    Daemon_handler handler{notify_path, &api};
    std::string text;
};

// The first socket is closed once, not leaked, and the second one is the one read.
TEST_F(Supervision, SecondInitClosesTheFirstSocketAndKeepsTheSecond)
{
    const int first = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int second = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_CALL(api, socket(_, _, _)).WillOnce(Return(first)).WillOnce(Return(second));
    EXPECT_CALL(api, close(first)).WillOnce([](int descriptor) { return ::close(descriptor); });
    EXPECT_CALL(api, close(second)).Times(0);
    ASSERT_TRUE(handler.init_socket_for_notify());
    ASSERT_TRUE(handler.init_socket_for_notify());
    EXPECT_CALL(api, recvmsg(second, _, receive_flags)).WillOnce(Return(-1));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(handler.get_ready_child(0));
    (void)testing::internal::GetCapturedStderr();
}

// One receive at once and one per 50 ms poll after it; without a socket none at all.
TEST_F(Supervision, Wait_ReceivesOncePerPollUntilTheLimit)
{
    EXPECT_CALL(api, recvmsg(_, _, _)).Times(0);
    EXPECT_FALSE(handler.get_ready_child(10));
    ASSERT_TRUE(handler.init_socket_for_notify());
    for (const auto& [seconds, receives] : {std::pair<std::uint64_t, int>{0, 1}, {1, 21}}) {
        EXPECT_CALL(api, recvmsg(_, testing::Field(&msghdr::msg_iovlen, 1U), receive_flags)).Times(receives);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(handler.get_ready_child(seconds));
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(seconds));
    }
}

TEST_F(Supervision, ForkFailureOrNoApi_MinusOneAndNoChild)
{
    EXPECT_EQ(create({}, {}, nullptr), -1);
    EXPECT_CALL(api, fork()).WillOnce(Return(-1));
    EXPECT_CALL(api, create_thread(_, _)).Times(0);
    EXPECT_CALL(api, execve(_, _, _)).Times(0);
    EXPECT_EQ(create({}, {}, &api), -1);
    EXPECT_THAT(text, HasSubstr("LAUNCHER ERROR: Process_factory: cannot fork new process and returning -1\n"));
}

// Empty arguments become the path alone; whatever execve returns is reported and the
// result is -1.
TEST_F(Supervision, ChildSide_ArgumentsEnvironmentAndExecveResult)
{
    const std::tuple<Lines, Lines, int, const char*> cases[] = {
        {{}, {"/usr/bin/dlt-daemon"}, -1, "execve returns FAILURE -1\n"},
        {{"dlt", "-c", "/etc/x.conf"}, {"dlt", "-c", "/etc/x.conf"}, 1234, "execve returns good procid 1234\n"},
        {{"dlt"}, {"dlt"}, -12, "execve returns good procid -12\n"}};
    for (const auto& [arguments, argv, result, line] : cases) {
        EXPECT_CALL(api, fork()).WillOnce(Return(0));
        EXPECT_CALL(api, execve(testing::StrEq("/usr/bin/dlt-daemon"), _, _))
            .WillOnce([&argv = argv, result = result](const char*, char* const* seen_argv, char* const* envp) {
                EXPECT_EQ(argv_strings(seen_argv), argv);
                EXPECT_EQ(argv_strings(envp), (Lines{"NOTIFY_SOCKET=/tmp/x", "A=b"}));
                return result;
            });
        EXPECT_EQ(create(arguments, {"NOTIFY_SOCKET=/tmp/x", "A=b"}, &api), -1);
        EXPECT_THAT(text, HasSubstr(std::string("fork done childPID= 0\nLAUNCHER Process_factory: ") + line +
                                    "Process_factory:create process Fork PID= 0FINAL\n"));
    }
}

// The pid, then how the child ended; a wait interrupted by a signal is resumed.
TEST_F(Supervision, ParentSide_ReturnsThePidAndReportsHowTheChildEnded)
{
    const std::tuple<pid_t, int, int, const char*> cases[] = {{77, 3 << 8, 0, "Exit code: 3\n"},
                                                              {77, 9, 0, "Status: 9\n"},
                                                              {-1, 0, 0, "Status: -1\n"},
                                                              {-1, 0, EINTR, "Exit code: 0\n"}};
    for (const auto& [returned, status, error, line] : cases) {
        EXPECT_CALL(api, fork()).WillOnce(Return(77));
        auto& waits = EXPECT_CALL(api, waitpid(77, _, 0));
        waits.WillOnce([returned = returned, status = status, error = error](pid_t, int* reported, int) {
            return *reported = status, errno = error, returned;
        });
        if (error == EINTR) {
            waits.WillOnce([](pid_t pid, int* reported, int) { return *reported = 0, pid; });
        }
        EXPECT_EQ(create({"quor_phmd"}, {}, &api), 77);
        EXPECT_THAT(text, HasSubstr(std::string("Launcher Process_factory: child process 77 terminated. ") + line));
        testing::Mock::VerifyAndClearExpectations(&api);
    }
}

}  // namespace

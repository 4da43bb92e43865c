// SPDX-License-Identifier: Apache-2.0
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <future>
#include <iterator>
#include <memory>
#include <fstream>
#include <vector>

#include "process/daemon_handler.hpp"
#include "process/process_factory.hpp"
#include "process/system_call_api.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

using testing::_;
using testing::HasSubstr;

namespace {

// Sends one datagram per payload from a socket whose blocking sends give up after 2 s;
// returns how many went out.
int send_datagrams(const std::string& path, const std::vector<std::string>& payloads)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const timeval patience{2, 0};
    (void)::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    sockaddr_un address{AF_UNIX, {}};
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    int sent = 0;
    for (const std::string& payload : payloads) {
        if (::sendto(descriptor, payload.data(), payload.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                     sizeof(address)) <= 0) {
            break;
        }
        ++sent;
    }
    ::close(descriptor);
    return sent;
}

// Polled: the factory offers no event for the end of its child.
bool ended_within_5_s(Process_factory& factory)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (factory.is_running() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return !factory.is_running();
}

class SupervisionProcess : public testing::Test {
protected:
    void SetUp() override
    {
        char name[] = "/tmp/strata-notify-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        directory = name;
    }
    void TearDown() override
    {
        std::error_code error;
        std::filesystem::remove_all(directory, error);
        EXPECT_FALSE(error) << directory << ": " << error.message();
    }

    System_call_api system_call;
    std::string directory;
};

// Queued before the wait, an oversized datagram is cut and a status ignored, and READY=1 is
// found among other lines; the stale file of an earlier run is replaced; a long path is cut,
// and that file and every descriptor go with the handler. After READY the socket is drained.
TEST_F(SupervisionProcess, NotifySocket_ReadsUntilReadyThenDrainsAndRemovesItsFile)
{
    const std::string path = (directory + "/") + std::string(120 - directory.size() - 1, 'n');
    const std::string cut = path.substr(0, 107);
    std::ofstream(cut) << "left by an earlier run";
    const auto open_descriptors = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator{});
    };
    const auto descriptors_before = open_descriptors();
    {
        Daemon_handler handler(path, &system_call);
        ASSERT_TRUE(handler.init_socket_for_notify());
        struct stat information {};
        EXPECT_TRUE(::stat(cut.c_str(), &information) == 0 && S_ISSOCK(information.st_mode));
        ASSERT_EQ(
            send_datagrams(cut, {std::string(6000, 'z'), "STATUS=loading manifests", "STATUS=up\nREADY=1\nMAINPID=7"}),
            3);
        testing::internal::CaptureStderr();
        EXPECT_TRUE(handler.get_ready_child(3));
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    HasSubstr("Daemon_handler: Getting message :" + std::string(4096, 'z') +
                              "\n"
                              "Daemon_handler: Getting message :STATUS=loading manifests\n"));
        // After READY a daemon keeps notifying with blocking sends; the socket's queue holds
        // about ten datagrams, so without a reader the eleventh send would block.
        EXPECT_EQ(send_datagrams(cut, std::vector<std::string>(1000, "STATUS=serving\nWATCHDOG=1")), 1000);
    }
    EXPECT_NE(::access(cut.c_str(), F_OK), 0);
    // The socket and the drain's wake-up pipe go with the handler.
    EXPECT_EQ(open_descriptors(), descriptors_before);
}

// A drain whose wake-up cannot be delivered (closing the pipe's write end fails) must not
// hang the stop: it notices the request by itself within a bounded time, and says so.
TEST_F(SupervisionProcess, NotifySocket_StopEndsWhenTheDrainCannotBeWoken)
{
    testing::NiceMock<Mock_system_call_api> api;
    ON_CALL(api, socket(_, _, _)).WillByDefault([this](int d, int t, int p) { return system_call.socket(d, t, p); });
    ON_CALL(api, bind(_, _, _)).WillByDefault([this](int d, const sockaddr* a, socklen_t l) {
        return system_call.bind(d, a, l);
    });
    ON_CALL(api, recvmsg(_, _, _)).WillByDefault([this](int d, msghdr* m, int f) {
        return system_call.recvmsg(d, m, f);
    });
    std::vector<int> not_closed;
    ON_CALL(api, close(_)).WillByDefault([&not_closed](int descriptor) {
        not_closed.push_back(descriptor);
        return errno = EIO, -1;
    });
    const std::string path = directory + "/notify";
    auto handler = std::make_unique<Daemon_handler>(path, &api);
    ASSERT_TRUE(handler->init_socket_for_notify());
    ASSERT_EQ(send_datagrams(path, {"READY=1"}), 1);
    testing::internal::CaptureStderr();
    ASSERT_TRUE(handler->get_ready_child(3));
    auto stopped = std::async(std::launch::async, [&handler] { handler.reset(); });
    if (stopped.wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
        std::fprintf(stdout, "the stop of the readiness drain hangs\n");
        std::fflush(stdout);
        std::_Exit(1);
    }
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("[Daemon_handler]: wake-up of the readiness drain failed; it stops at its next check\n"));
    EXPECT_EQ(not_closed.size(), 2U);
    for (const int descriptor : not_closed) {
        (void)::close(descriptor);
    }
}

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

void ignore_signal(int) {}

// A child killed while running, and one hit by a termination before execve: that must reach
// it, not the handler the launcher had installed when it forked.
TEST_F(SupervisionProcess, Factory_ReportsHowTheChildEndedAndWhileItRuns)
{
    struct sigaction handler {};
    struct sigaction previous {};
    handler.sa_handler = ignore_signal;
    ASSERT_EQ(::sigaction(SIGTERM, &handler, &previous), 0);
    testing::NiceMock<Mock_system_call_api> early_signal;
    ON_CALL(early_signal, fork()).WillByDefault([] {
        const pid_t pid = ::fork();
        return pid == 0 ? (void)::raise(SIGTERM), pid : pid;
    });
    ON_CALL(early_signal, execve(_, _, _)).WillByDefault(::execve);
    ON_CALL(early_signal, waitpid(_, _, _)).WillByDefault(::waitpid);
    ON_CALL(early_signal, create_thread(_, _)).WillByDefault(real_thread);
    for (System_call_api_interface* api : {static_cast<System_call_api_interface*>(&system_call),
                                           static_cast<System_call_api_interface*>(&early_signal)}) {
        pid_t child = -1;
        testing::internal::CaptureStderr();
        {
            Process_factory factory(api);
            std::vector<std::string> arguments{"sleep", "100"};
            child = factory.create_process("/bin/sleep", arguments, {});
            if (api == &system_call) {
                EXPECT_TRUE(factory.is_running());
                EXPECT_EQ(system_call.kill(child, SIGKILL), 0);
            }
            if (!ended_within_5_s(factory)) {
                ADD_FAILURE() << "child " << child << " still running";
                (void)system_call.kill(child, SIGKILL);
            }
        }
        EXPECT_THAT(testing::internal::GetCapturedStderr(),
                    HasSubstr("child process " + std::to_string(child) +
                              " terminated. Status: " + (api == &system_call ? "9\n" : "15\n")));
    }
    (void)::sigaction(SIGTERM, &previous, nullptr);
}

}  // namespace

#include "process/daemon_handler.hpp"

#include <fcntl.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <deque>

#include "tests/mocks/mock_system_call_api.hpp"

using testing::_;
using testing::HasSubstr;
using testing::Invoke;
using testing::NiceMock;
using testing::Return;
using testing::StrEq;

namespace {

const std::string notify_path = "/run/test/ara_COM/com_launch_daemon";

// The destructor closes the descriptor with the real close, so the fake socket call hands
// out a real descriptor of this process rather than a made-up number.
int real_descriptor()
{
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

class DaemonHandlerTest : public testing::Test {
protected:
    // Makes init_socket_for_notify succeed with a real descriptor.
    void bound(Daemon_handler& handler)
    {
        EXPECT_CALL(system_call, socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)).WillOnce(Return(real_descriptor()));
        ON_CALL(system_call, bind(_, _, _)).WillByDefault(Return(0));
        ASSERT_TRUE(handler.init_socket_for_notify());
    }

    // recvmsg hands out the queued datagrams, then reports that nothing is waiting.
    void datagrams_arrive(std::deque<std::string> datagrams)
    {
        queued = std::move(datagrams);
        ON_CALL(system_call, recvmsg(_, _, _)).WillByDefault(Invoke([this](int, msghdr* message, int) -> ssize_t {
            if (queued.empty()) {
                errno = EAGAIN;
                return -1;
            }
            const std::string datagram = queued.front();
            queued.pop_front();
            const std::size_t room = message->msg_iov[0].iov_len;
            std::memcpy(message->msg_iov[0].iov_base, datagram.data(), std::min(room, datagram.size()));
            return static_cast<ssize_t>(datagram.size());
        }));
    }

    NiceMock<Mock_system_call_api> system_call;
    std::deque<std::string> queued;
};

TEST_F(DaemonHandlerTest, WithoutSocket_WaitWritesThreeLinesAndFailsAtOnce)
{
    Daemon_handler handler(notify_path, &system_call);
    EXPECT_CALL(system_call, recvmsg(_, _, _)).Times(0);
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(handler.get_ready_child(10));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(40));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[Daemon_handler, get_ready_child]: socket_descriptor is empty\n"
              "[Daemon_handler]:Started for waiting on child ready ...\n"
              "[Daemon_handler]: get_child_ready =  0\n");
}

TEST_F(DaemonHandlerTest, Init_UnlinksThenBindsTheWholeAddressWithThePath)
{
    Daemon_handler handler(notify_path, &system_call);
    testing::InSequence order;
    EXPECT_CALL(system_call, socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)).WillOnce(Return(real_descriptor()));
    EXPECT_CALL(system_call, unlink(StrEq(notify_path))).WillOnce(Return(-1));
    EXPECT_CALL(system_call, bind(_, _, 110)).WillOnce(Invoke([](int, const sockaddr* address, socklen_t) {
        const auto* unix_address = reinterpret_cast<const sockaddr_un*>(address);
        EXPECT_EQ(unix_address->sun_family, AF_UNIX);
        EXPECT_STREQ(unix_address->sun_path, notify_path.c_str());
        return 0;
    }));
    EXPECT_CALL(system_call, remove(StrEq(notify_path))).WillOnce(Return(0));
    EXPECT_TRUE(handler.init_socket_for_notify());
}

TEST_F(DaemonHandlerTest, Init_ReportsSocketAndBindErrors)
{
    {
        Daemon_handler handler(notify_path, &system_call);
        EXPECT_CALL(system_call, socket(_, _, _)).WillOnce(Return(-1));
        EXPECT_CALL(system_call, bind(_, _, _)).Times(0);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(handler.init_socket_for_notify());
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "[Daemon_handler]: socket error\n");
    }
    Daemon_handler handler(notify_path, &system_call);
    EXPECT_CALL(system_call, socket(_, _, _)).WillOnce(Return(real_descriptor()));
    EXPECT_CALL(system_call, bind(_, _, _)).WillOnce(Return(-1));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(handler.init_socket_for_notify());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[Daemon_handler]: bind error\n");
}

TEST_F(DaemonHandlerTest, Wait_ZeroSecondsMakesExactlyOneNonBlockingReceive)
{
    Daemon_handler handler(notify_path, &system_call);
    bound(handler);
    EXPECT_CALL(system_call, recvmsg(_, _, MSG_DONTWAIT | MSG_TRUNC | MSG_CMSG_CLOEXEC))
        .WillOnce(Invoke([](int, msghdr* message, int) -> ssize_t {
            EXPECT_EQ(message->msg_name, nullptr);
            EXPECT_EQ(message->msg_control, nullptr);
            EXPECT_EQ(message->msg_controllen, 0U);
            EXPECT_EQ(message->msg_iovlen, 1U);
            EXPECT_EQ(message->msg_iov[0].iov_len, 4096U);
            errno = EAGAIN;
            return -1;
        }));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(handler.get_ready_child(0));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[Daemon_handler]:Started for waiting on child ready ...\n"
              "[Daemon_handler]: timeout reached for child_ready \n"
              "[Daemon_handler]: get_child_ready =  0\n");
}

TEST_F(DaemonHandlerTest, Wait_OneSecondMakes21ReceivesInAboutOneSecond)
{
    Daemon_handler handler(notify_path, &system_call);
    bound(handler);
    datagrams_arrive({});
    EXPECT_CALL(system_call, recvmsg(_, _, _)).Times(21);
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(handler.get_ready_child(1));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    (void)testing::internal::GetCapturedStderr();
    EXPECT_GE(elapsed, std::chrono::milliseconds(1000));
    EXPECT_LT(elapsed, std::chrono::milliseconds(1500));
}

TEST_F(DaemonHandlerTest, Wait_IgnoresOtherTextsAndFindsReadyAnywhereInTheDatagram)
{
    Daemon_handler handler(notify_path, &system_call);
    bound(handler);
    datagrams_arrive({"STATUS=starting", "", "STATUS=up\nREADY=1\nMAINPID=7"});
    testing::internal::CaptureStderr();
    EXPECT_TRUE(handler.get_ready_child(1));
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[Daemon_handler]:Started for waiting on child ready ...\n"
              "Daemon_handler: Getting message :STATUS=starting\n"
              "Daemon_handler: Getting message :\n"
              "Daemon_handler: Getting message :STATUS=up\nREADY=1\nMAINPID=7\n"
              "[Daemon_handler]: get child_ready from " +
                  notify_path +
                  "\n"
                  "[Daemon_handler]: get_child_ready =  1\n");
}

TEST_F(DaemonHandlerTest, Signals_TerminationIsTrueOnDeliveryAndKillReturnsTheRawResult)
{
    Daemon_handler handler(notify_path, &system_call);
    EXPECT_CALL(system_call, kill(321, 15)).WillOnce(Return(0)).WillOnce(Return(-1));
    EXPECT_CALL(system_call, kill(321, 9)).WillOnce(Return(0)).WillOnce(Return(-1));
    testing::internal::CaptureStderr();
    EXPECT_TRUE(handler.send_termination(321));
    EXPECT_FALSE(handler.send_termination(321));
    EXPECT_EQ(handler.send_kill(321), 0);
    EXPECT_EQ(handler.send_kill(321), -1);
    // The termination line has no line end of its own.
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[Daemon_handler]: send_termination signal to the PID :321"
              "[Daemon_handler]: send_termination signal to the PID :321");
}

}  // namespace

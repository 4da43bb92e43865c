#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>

#include "process/daemon_handler.hpp"
#include "process/system_call_api.hpp"

using testing::HasSubstr;

namespace {

bool exists(const std::string& path)
{
    struct stat information {};
    return ::lstat(path.c_str(), &information) == 0;
}

int count_of(const std::string& text, const std::string& part)
{
    int count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

class DaemonHandlerProcessTest : public testing::Test {
protected:
    void SetUp() override
    {
        char name[] = "/tmp/strata-notify-XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        directory = name;
        socket_path = directory + "/launch_daemon";
    }
    void TearDown() override { (void)std::system(("rm -rf '" + directory + "'").c_str()); }

    void send_datagram(const std::string& payload, const std::string& path)
    {
        const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ASSERT_GE(descriptor, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        const ssize_t sent = ::sendto(descriptor, payload.data(), payload.size(), 0,
                                      reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        ::close(descriptor);
        ASSERT_EQ(sent, static_cast<ssize_t>(payload.size()));
    }
    void send_datagram(const std::string& payload) { send_datagram(payload, socket_path); }

    System_call_api system_call;
    std::string directory;
    std::string socket_path;
};

// Sent before the wait, so nothing is lost; read one per poll, an oversized one cut, the
// others logged and ignored.
TEST_F(DaemonHandlerProcessTest, DatagramsQueuedBeforeTheWaitAreReadInOrderUntilReady)
{
    Daemon_handler handler(socket_path, &system_call);
    ASSERT_TRUE(handler.init_socket_for_notify());
    send_datagram(std::string(6000, 'z'));
    send_datagram("STATUS=loading manifests");
    send_datagram("READY=1");
    testing::internal::CaptureStderr();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(handler.get_ready_child(3));
    const auto elapsed = std::chrono::steady_clock::now() - start;
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(count_of(text, "Daemon_handler: Getting message :"), 3);
    EXPECT_THAT(text, HasSubstr("Daemon_handler: Getting message :" + std::string(4096, 'z') + "\n"
                                "Daemon_handler: Getting message :STATUS=loading manifests\n"));
    EXPECT_LT(elapsed, std::chrono::milliseconds(1000));
}

TEST_F(DaemonHandlerProcessTest, StaleFileIsReplacedAndTheSocketFileIsRemovedOnDestruction)
{
    std::ofstream(socket_path) << "left by an earlier run";
    {
        Daemon_handler handler(socket_path, &system_call);
        ASSERT_TRUE(handler.init_socket_for_notify());
        struct stat information {};
        ASSERT_EQ(::stat(socket_path.c_str(), &information), 0);
        EXPECT_TRUE(S_ISSOCK(information.st_mode));
    }
    EXPECT_FALSE(exists(socket_path));
}

TEST_F(DaemonHandlerProcessTest, LongPathIsBoundCutAndThatFileIsRemoved)
{
    std::string long_path = directory + "/";
    long_path += std::string(120 - long_path.size(), 'n');
    const std::string cut = long_path.substr(0, 107);
    {
        Daemon_handler handler(long_path, &system_call);
        ASSERT_TRUE(handler.init_socket_for_notify());
        EXPECT_TRUE(exists(cut));
        send_datagram("READY=1", cut);
        testing::internal::CaptureStderr();
        EXPECT_TRUE(handler.get_ready_child(0));
        (void)testing::internal::GetCapturedStderr();
    }
    EXPECT_FALSE(exists(cut));
}


// A daemon keeps notifying after READY with blocking sends; the socket's queue holds
// about ten datagrams, so without a reader the eleventh send would block for good.
TEST_F(DaemonHandlerProcessTest, NotificationsAfterReadinessNeverBlockTheDaemon)
{
    Daemon_handler handler(socket_path, &system_call);
    ASSERT_TRUE(handler.init_socket_for_notify());
    send_datagram("READY=1");
    testing::internal::CaptureStderr();
    ASSERT_TRUE(handler.get_ready_child(0));
    (void)testing::internal::GetCapturedStderr();

    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(descriptor, 0);
    // A send blocked this long counts as blocked for good.
    const timeval patience{2, 0};
    ASSERT_EQ(::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience)), 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket_path.c_str(), sizeof(address.sun_path) - 1);
    int delivered = 0;
    for (; delivered < 1000; ++delivered) {
        const std::string status = "STATUS=serving " + std::to_string(delivered) + "\nWATCHDOG=1";
        if (::sendto(descriptor, status.data(), status.size(), 0, reinterpret_cast<const sockaddr*>(&address),
                     sizeof(address)) <= 0) {
            break;
        }
    }
    ::close(descriptor);
    EXPECT_EQ(delivered, 1000);
}

}  // namespace

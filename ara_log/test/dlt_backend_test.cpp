// SPDX-License-Identifier: Apache-2.0
// The DLT backend against Debian's dlt-daemon, run privately: its FIFOs, control socket and
// storage live in a temporary directory and it listens on a free loopback port.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// A process of this test, started through env(1) with nothing but the given variables,
// whose standard output and error the test reads through a pipe; killed and reaped (by its
// own pid only) when the object goes.
class Spawned {
public:
    Spawned(std::vector<std::string> arguments, const std::vector<std::string>& environment = {})
    {
        arguments.insert(arguments.begin(), environment.begin(), environment.end());
        std::vector<char*> argv{const_cast<char*>("/usr/bin/env"), const_cast<char*>("-i")};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        pid = ::fork();
        if (pid == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::dup2(ends[1], STDERR_FILENO);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        output_end = ends[0];
    }
    ~Spawned()
    {
        (void)::kill(pid, SIGKILL);
        (void)::waitpid(pid, nullptr, 0);
        ::close(output_end);
    }
    Spawned(const Spawned&) = delete;
    Spawned& operator=(const Spawned&) = delete;

    // Reads until `text` has been printed or, for an empty text, until the process has
    // closed its output (it ends); false when the bound passes first.
    bool await(const std::string& text, std::chrono::milliseconds bound = std::chrono::seconds(10))
    {
        const auto deadline = Clock::now() + bound;
        while (text.empty() || output.find(text) == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd readable{output_end, POLLIN, 0};
            char buffer[4096];
            if (left.count() <= 0) {
                return false;
            }
            const int ready = ::poll(&readable, 1, static_cast<int>(left.count()));
            if (ready == -1 && errno == EINTR) {
                continue;
            }
            if (ready != 1) {
                return false;
            }
            const ssize_t got = ::read(output_end, buffer, sizeof(buffer));
            if (got <= 0) {
                return text.empty();
            }
            output.append(buffer, static_cast<std::size_t>(got));
        }
        return true;
    }
    std::string output;

private:
    pid_t pid{-1};
    int output_end{-1};
};

int free_loopback_port()
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    (void)::bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    (void)::getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(descriptor);
    return ntohs(address.sin_port);
}

// The probe logs as the launcher does. Without a daemon, or even its pipe directory, it
// neither waits nor prints. With one, its error arrives under the application identifier,
// but debug messages only once the level has been raised remotely.
TEST(DltBackend, ErrorsReachThePrivateDaemonAndDebugOnlyAfterARemoteRaise)
{
    struct Directory {
        char name[23] = "/tmp/strata-dlt-XXXXXX";
        const std::string path = ::mkdtemp(name);
        ~Directory()
        {
            std::error_code error;
            std::filesystem::remove_all(path, error);
            EXPECT_FALSE(error) << path << ": " << error.message();
        }
    } directory;
    const std::string& dir = directory.path;
    for (const std::string& pipes : {dir, dir + "/missing"}) {
        const auto start = Clock::now();
        Spawned probe({LOG_PROBE_PATH, "once"}, {"DLT_PIPE_DIR=" + pipes});
        ASSERT_TRUE(probe.await("", std::chrono::seconds(5)));
        // Under user-mode emulation (cross builds) the emulator's own start takes long.
#ifdef STRATA_TEST_EMULATED
        EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(4000)) << pipes;
#else
        EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(1000)) << pipes;
#endif
        EXPECT_EQ(probe.output, "") << pipes;
    }
    const std::string tools[] = {"/usr/bin/dlt-daemon", "/usr/bin/dlt-receive", "/usr/bin/dlt-control",
                                 "/usr/bin/stdbuf"};
    for (const std::string& tool : tools) {
        if (::access(tool.c_str(), X_OK) != 0) {
            GTEST_SKIP() << tool << " is not installed";
        }
    }
    std::ofstream(dir + "/dlt.conf") << "ECUId = ECU1\nLoggingMode = 0\nLoggingLevel = 6\nControlSocketPath = " << dir
                                     << "/dlt-ctrl.sock\nPersistanceStoragePath = " << dir << "\n";
    const std::string port = std::to_string(free_loopback_port());
    Spawned daemon({"/usr/bin/dlt-daemon", "-c", dir + "/dlt.conf", "-t", dir, "-p", port});
    ASSERT_TRUE(daemon.await("Listening on ip")) << daemon.output;
    // Line-buffered, so that every message is read as soon as it arrives. The daemon prints
    // that it listens a moment before it keeps its clients: one that it drops at once ends,
    // and a new one is started until the daemon greets it.
    std::unique_ptr<Spawned> connected;
    for (const auto deadline = Clock::now() + std::chrono::seconds(10); !connected && Clock::now() < deadline;) {
        auto attempt = std::make_unique<Spawned>(
            std::vector<std::string>{"/usr/bin/stdbuf", "-oL", "/usr/bin/dlt-receive", "-a", "-p", port, "127.0.0.1"});
        if (attempt->await("New client connection")) {
            connected = std::move(attempt);
        }
    }
    ASSERT_TRUE(connected) << "dlt-receive never greeted by the daemon: " << daemon.output;
    Spawned& receiver = *connected;
    Spawned probe({LOG_PROBE_PATH, "raise"}, {"DLT_PIPE_DIR=" + dir, "DLT_DAEMON_TCP_PORT=" + port});
    ASSERT_TRUE(receiver.await("LAUC LAUN log error V 5 [error message from probe 42 1 1.5 end]")) << receiver.output;
    Spawned control({"/usr/bin/dlt-control", "-a", "LAUC", "-c", "LAUN", "-l", "5", "-p", port, "127.0.0.1"});
    EXPECT_TRUE(receiver.await("LAUC LAUN log debug V 2 [debug after raise")) << receiver.output;
    // Logged before the error, so it would have arrived first; and nothing empty follows the flush.
    EXPECT_EQ(receiver.output.find("debug before raise"), std::string::npos);
    EXPECT_EQ(receiver.output.find("LAUC LAUN log error V 0 []"), std::string::npos);
}

}  // namespace

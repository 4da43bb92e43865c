// The DLT backend against Debian's dlt-daemon, run privately: its FIFOs, control socket and
// log live in a temporary directory and it listens on a free loopback port.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

using testing::HasSubstr;
using testing::Not;

namespace {

using Clock = std::chrono::steady_clock;

// "At once" for a program run without its log daemon. Under user-mode emulation
// (cross builds) the emulator's own start takes several hundred milliseconds.
#ifdef STRATA_TEST_EMULATED
constexpr std::chrono::milliseconds kAtOnce{2000};
#else
constexpr std::chrono::milliseconds kAtOnce{500};
#endif

const std::string probe = LOG_PROBE_PATH;

std::string read_file(const std::string& path)
{
    std::ifstream file(path);
    std::stringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

bool wait_for(const std::function<bool()>& condition, std::chrono::milliseconds bound)
{
    const auto deadline = Clock::now() + bound;
    while (!condition()) {
        if (Clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

// A process of this test, with standard output and error in one file; ended and reaped
// (by its own pid only) when the object goes.
class Spawned {
public:
    Spawned(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
            const std::string& output_path)
    {
        std::vector<char*> argv;
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (const std::string& variable : environment) {
            envp.push_back(const_cast<char*>(variable.c_str()));
        }
        envp.push_back(nullptr);
        const int output = ::open(output_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        pid = ::fork();
        if (pid == 0) {
            ::dup2(output, STDOUT_FILENO);
            ::dup2(output, STDERR_FILENO);
            ::execve(argv[0], argv.data(), envp.data());
            ::_exit(127);
        }
        ::close(output);
    }
    ~Spawned()
    {
        if (pid > 0 && !reaped) {
            (void)::kill(pid, SIGKILL);
            (void)::waitpid(pid, nullptr, 0);
        }
    }
    Spawned(const Spawned&) = delete;
    Spawned& operator=(const Spawned&) = delete;

    // The wait status, or -1 when the process did not end within the bound.
    int wait(std::chrono::milliseconds bound)
    {
        int status = -1;
        const bool ended = wait_for([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, bound);
        reaped = ended;
        return ended ? status : -1;
    }
    void stop()
    {
        if (pid > 0 && !reaped) {
            (void)::kill(pid, SIGTERM);
            if (wait(std::chrono::seconds(3)) == -1) {
                (void)::kill(pid, SIGKILL);
                (void)wait(std::chrono::seconds(3));
            }
        }
    }

    pid_t pid{-1};

private:
    bool reaped{false};
};

class TemporaryDirectory {
public:
    TemporaryDirectory()
    {
        char name[] = "/tmp/strata-dlt-XXXXXX";
        path = ::mkdtemp(name);
    }
    ~TemporaryDirectory() { (void)std::system(("rm -rf '" + path + "'").c_str()); }
    std::string path;
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

bool installed(const char* path)
{
    return ::access(path, X_OK) == 0;
}

// Without a log daemon, or even its pipe directory, the launcher neither waits nor prints.
TEST(DltBackendTest, WithoutDaemonOrPipeDirectory_ProgramPrintsNothingAndExitsAtOnce)
{
    TemporaryDirectory directory;
    for (const std::string& pipes : {directory.path, directory.path + "/missing"}) {
        const std::string output = directory.path + "/probe.out";
        const auto start = Clock::now();
        Spawned program({probe, "once"}, {"DLT_PIPE_DIR=" + pipes}, output);
        const int status = program.wait(std::chrono::seconds(5));
        const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
        ASSERT_NE(status, -1);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << pipes;
        EXPECT_EQ(read_file(output), "") << pipes;
        EXPECT_LT(elapsed, kAtOnce) << pipes;
    }
}

class DltDaemonTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!installed("/usr/bin/dlt-daemon") || !installed("/usr/bin/dlt-receive") ||
            !installed("/usr/bin/dlt-control") || !installed("/usr/bin/stdbuf")) {
            GTEST_SKIP() << "dlt-daemon, dlt-receive, dlt-control or stdbuf is not installed";
        }
        port = std::to_string(free_loopback_port());
        const std::string& dir = directory.path;
        std::ofstream(dir + "/dlt.conf") << "SendContextRegistration = 1\n"
                                            "ECUId = ECU1\n"
                                            "LoggingMode = 2\n"
                                            "LoggingLevel = 6\n"
                                            "LoggingFilename = "
                                         << dir
                                         << "/daemon.log\n"
                                            "ControlSocketPath = "
                                         << dir
                                         << "/dlt-ctrl.sock\n"
                                            "PersistanceStoragePath = "
                                         << dir << "\n";
        daemon = std::make_unique<Spawned>(
            std::vector<std::string>{"/usr/bin/dlt-daemon", "-c", dir + "/dlt.conf", "-t", dir, "-p", port},
            std::vector<std::string>{}, dir + "/daemon.out");
        ASSERT_TRUE(
            wait_for([&] { return read_file(dir + "/daemon.log").find("Listening on ip") != std::string::npos; },
                     std::chrono::seconds(5)))
            << read_file(dir + "/daemon.out");
        // Line-buffered, so that every message is in the file as soon as it arrives.
        receiver = std::make_unique<Spawned>(
            std::vector<std::string>{"/usr/bin/stdbuf", "-oL", "/usr/bin/dlt-receive", "-a", "-p", port, "127.0.0.1"},
            std::vector<std::string>{}, received_path());
        ASSERT_TRUE(received_contains("New client connection"));
    }

    void TearDown() override
    {
        if (receiver) {
            receiver->stop();
        }
        if (daemon) {
            daemon->stop();
        }
    }

    std::string received_path() const { return directory.path + "/received.txt"; }
    bool received_contains(const std::string& text)
    {
        return wait_for([&] { return read_file(received_path()).find(text) != std::string::npos; },
                        std::chrono::seconds(5));
    }
    std::vector<std::string> probe_environment() const
    {
        return {"DLT_PIPE_DIR=" + directory.path, "DLT_DAEMON_TCP_PORT=" + port};
    }

    TemporaryDirectory directory;
    std::string port;
    std::unique_ptr<Spawned> daemon;
    std::unique_ptr<Spawned> receiver;
};

TEST_F(DltDaemonTest, ErrorArrivesUnderTheApplicationIdAndDebugStaysBelowTheThreshold)
{
    Spawned program({probe, "deliver"}, probe_environment(), directory.path + "/probe.out");
    ASSERT_NE(program.wait(std::chrono::seconds(5)), -1);
    EXPECT_EQ(read_file(directory.path + "/probe.out"), "");
    ASSERT_TRUE(received_contains("LAUC LAUN log error V 5 [error message from probe 42 1 1.5 end]"))
        << read_file(received_path());
    // The debug message was logged first, so it would have arrived before the error.
    const std::string received = read_file(received_path());
    EXPECT_THAT(received, Not(HasSubstr("debug message must stay local")));
    // Nothing empty is sent after the flush.
    EXPECT_THAT(received, Not(HasSubstr("LAUC LAUN log error V 0 []")));
}

TEST_F(DltDaemonTest, LevelRaisedThroughTheDaemonLetsDebugMessagesThrough)
{
    Spawned program({probe, "raise"}, probe_environment(), directory.path + "/probe.out");
    ASSERT_TRUE(received_contains("probe waiting for a raised level")) << read_file(received_path());
    EXPECT_THAT(read_file(received_path()), Not(HasSubstr("debug after raise")));
    Spawned control({"/usr/bin/dlt-control", "-a", "LAUC", "-c", "LAUN", "-l", "5", "-p", port, "127.0.0.1"}, {},
                    directory.path + "/control.out");
    EXPECT_TRUE(received_contains("LAUC LAUN log debug V 2 [debug after raise")) << read_file(received_path());
    EXPECT_NE(control.wait(std::chrono::seconds(5)), -1);
    program.stop();
}

TEST_F(DltDaemonTest, StreamsFromSeveralThreadsAllArrive)
{
    Spawned program({probe, "threads"}, probe_environment(), directory.path + "/probe.out");
    ASSERT_NE(program.wait(std::chrono::seconds(10)), -1);
    // The last message of every thread arrives; none of the filtered ones does.
    for (int index = 0; index < 4; ++index) {
        EXPECT_TRUE(received_contains("[thread  " + std::to_string(index) + "  message  199]"));
    }
    EXPECT_THAT(read_file(received_path()), Not(HasSubstr("filtered")));
}

}  // namespace

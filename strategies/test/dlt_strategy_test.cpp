#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/un.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/test/strategy_system.hpp"

using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Return;

namespace {

const std::vector<std::string> environment{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                           "NOTIFY_SOCKET=/var/run/adaptive/ara_DLT/dlt_launch_daemon",
                                           "APP_INSTANCE_ID=dlt-daemon-container"};

class DltStrategy : public testing::Test {
protected:
    void SetUp() override
    {
        reader.directories["/etc/"] = {"hosts", "dlt_ara_adaptive_vm.conf", "dlt_ara_java_vm.conf",
                                       "dlt_ara_hk_vm.conf", "dlt_ara_qemu.conf"};
        ON_CALL(api, get_quiet_file_path()).WillByDefault(Return(quiet_file));
    }
    void TearDown() override { (void)::unlink(quiet_file.c_str()); }

    std::unique_ptr<Launcher_strategy_DLT> make(std::uint8_t partition)
    {
        auto strategy = std::make_unique<Launcher_strategy_DLT>(partition);
        strategy->set_directory_reader(&reader);
        return strategy;
    }
    std::string quiet_content() const
    {
        std::stringstream content;
        content << std::ifstream(quiet_file).rdbuf();
        return content.str();
    }

    const std::string quiet_file{testing::TempDir() + "strata_dlt_quiet"};
    Strategy_system api;
    Fake_directory_reader reader;
};

// Without its configuration the log daemon still starts, on its defaults.
TEST_F(DltStrategy, LogDaemonConfigurationByPartitionAndSharedSocket)
{
    const std::pair<std::uint8_t, std::vector<std::string>> cases[] = {
        {vm_adaptive, {"-c", "/etc/dlt_ara_adaptive_vm.conf"}}, {vm_java, {"-c", "/etc/dlt_ara_java_vm.conf"}},
        {vm_housekeeping, {"-c", "/etc/dlt_ara_hk_vm.conf"}}, {qemu_arm64, {"-c", "/etc/dlt_ara_qemu.conf"}},
        {vm_housekeeping, {}}};
    EXPECT_CALL(api, bind(_, _, _)).Times(5).WillRepeatedly([](int, const sockaddr* address, socklen_t) {
        EXPECT_STREQ(reinterpret_cast<const sockaddr_un*>(address)->sun_path, "/var/run/adaptive/ara_DLT/dlt_launch_daemon");
        return 0;
    });
    for (const auto& [partition, options] : cases) {
        api.fork_results = {0};
        if (options.empty()) {
            reader.directories["/etc/"] = {"hosts"};
        }
        auto strategy = make(partition);
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        EXPECT_FALSE(strategy->start());
        std::vector<std::string> argv{"/usr/bin/dlt-daemon"};
        argv.insert(argv.end(), options.begin(), options.end());
        EXPECT_EQ(api.execs.back().path, "/usr/bin/dlt-daemon");
        EXPECT_EQ(api.execs.back().argv, argv);
        EXPECT_EQ(api.execs.back().envp, environment);
    }
}

TEST_F(DltStrategy, CompanionsShareTheEnvironmentAndTheirFailuresAreReported)
{
    api.fork_results = {4101, 0, 0};
    auto strategy = make(vm_adaptive);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_CALL(api, recvmsg(_, _, _)).Times(0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->start());
    const std::string errors = testing::internal::GetCapturedStderr();
    ASSERT_EQ(api.execs.size(), 2U);
    EXPECT_THAT(api.execs[0].argv,
                ElementsAre("/usr/bin/dltproxyd", "-c", "/data/target/etc/adaptive/ara_DLT/dlt_proxy.json"));
    EXPECT_THAT(api.execs[1].argv, ElementsAre("/usr/bin/dlt-system"));
    EXPECT_EQ(api.execs[0].envp, environment);
    EXPECT_EQ(api.execs[1].envp, environment);
    EXPECT_THAT(errors, HasSubstr("[LS_DLT]: dlt proxy daemon is not able to start\n"
                                  "[LS_DLT]: dlt system daemon is not able to start\n"));
}

// The console is quiet while the log daemon runs and verbose again after it: logging off.
TEST_F(DltStrategy, StartAndStop_ConsoleQuietWhileRunningAndAnyLeftoverProxyEnded)
{
    {
        testing::InSequence order;
        for (const int signal : {SIGTERM, SIGKILL}) {
            for (const pid_t pid : {4101, 4102, 4103}) {
                EXPECT_CALL(api, kill(pid, signal));
            }
        }
        EXPECT_CALL(api, system("killall -s 15 dltproxyd"));
    }
    auto strategy = make(vm_adaptive);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_TRUE(strategy->start());
    EXPECT_EQ(quiet_content(), "1 \n");
    testing::internal::CaptureStderr();
    strategy->stop();
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("STOP DLT LAUNCHER ...\n"));
    EXPECT_EQ(quiet_content(), "0 \n");
}

TEST_F(DltStrategy, UnwritableConsoleIsReportedAtStartAndStop)
{
    ON_CALL(api, get_quiet_file_path()).WillByDefault(Return("/nonexistent/quiet"));
    auto strategy = make(vm_housekeeping);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    testing::internal::CaptureStderr();
    EXPECT_TRUE(strategy->start());
    strategy->stop();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::AllOf(HasSubstr("DLT_Launcher: Cannot read virtual console file at stop\n"),
                               HasSubstr("DLT_Launcher: Cannot read virtual console file at start\n")));
}

}  // namespace

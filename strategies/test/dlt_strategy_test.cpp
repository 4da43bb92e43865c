#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>

#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/test/fake_directory_reader.hpp"
#include "strategies/test/fake_system_call_api.hpp"

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Sent = Fake_system_call_api::Signal_sent;

namespace {

const std::string path_entry{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"};
const std::vector<std::string> dlt_environment{path_entry, "NOTIFY_SOCKET=/var/run/adaptive/ara_DLT/dlt_launch_daemon",
                                               "APP_INSTANCE_ID=dlt-daemon-container"};

class DltStrategy : public testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/strata_dlt_quiet_XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        temp_directory = pattern;
        quiet_file = temp_directory + "/quiet";
        api.set_quiet_file_path(quiet_file);
        reader.add_directory("/etc/", {"hosts", "dlt_ara_adaptive_vm.conf", "dlt_ara_java_vm.conf",
                                       "dlt_ara_hk_vm.conf", "dlt_ara_qemu.conf"});
    }

    void TearDown() override
    {
        api.end_all_children();
        strategy.reset();
        (void)::unlink(quiet_file.c_str());
        (void)::rmdir(temp_directory.c_str());
    }

    void make(std::uint8_t partition)
    {
        strategy = std::make_unique<Launcher_strategy_DLT>(partition);
        strategy->set_directory_reader(&reader);
    }

    std::string quiet_content() const
    {
        std::ifstream file(quiet_file);
        std::stringstream content;
        content << file.rdbuf();
        return content.str();
    }


    Fake_system_call_api api;
    Fake_directory_reader reader;
    std::unique_ptr<Launcher_strategy_DLT> strategy;
    std::string temp_directory;
    std::string quiet_file;
};

TEST_F(DltStrategy, LogDaemonRecord_ConfigurationByPartitionAndSharedSocket)
{
    const std::vector<std::pair<std::uint8_t, std::string>> cases{{vm_adaptive, "/etc/dlt_ara_adaptive_vm.conf"},
                                                                  {vm_java, "/etc/dlt_ara_java_vm.conf"},
                                                                  {vm_housekeeping, "/etc/dlt_ara_hk_vm.conf"},
                                                                  {qemu_arm64, "/etc/dlt_ara_qemu.conf"}};
    int fork_number = 0;
    for (const auto& [partition, configuration] : cases) {
        make(partition);
        api.fork_as_child(++fork_number);
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        EXPECT_FALSE(strategy->start());
        const auto exec = api.execs().back();
        EXPECT_EQ(exec.path, "/usr/bin/dlt-daemon");
        EXPECT_THAT(exec.argv, ElementsAre("/usr/bin/dlt-daemon", "-c", configuration));
        EXPECT_EQ(exec.envp, dlt_environment);
    }
    EXPECT_EQ(api.fork_count(), 4);
    EXPECT_EQ(api.bound_paths().back(), "/var/run/adaptive/ara_DLT/dlt_launch_daemon");
}

TEST_F(DltStrategy, CompanionRecords_ProxyAndSystemLoggerShareTheEnvironment)
{
    make(vm_adaptive);
    api.fork_as_child(2);
    api.fork_as_child(3);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    testing::internal::CaptureStderr();

    EXPECT_FALSE(strategy->start());

    const std::string errors = testing::internal::GetCapturedStderr();
    ASSERT_EQ(api.execs().size(), 2U);
    EXPECT_THAT(api.execs()[0].argv,
                ElementsAre("/usr/bin/dltproxyd", "-c", "/data/target/etc/adaptive/ara_DLT/dlt_proxy.json"));
    EXPECT_EQ(api.execs()[0].envp, dlt_environment);
    EXPECT_THAT(api.execs()[1].argv, ElementsAre("/usr/bin/dlt-system"));
    EXPECT_EQ(api.execs()[1].envp, dlt_environment);
    EXPECT_THAT(errors, AllOf(HasSubstr("[LS_DLT]: dlt proxy daemon is not able to start\n"),
                              HasSubstr("[LS_DLT]: dlt system daemon is not able to start\n")));
    EXPECT_EQ(api.receive_attempts(), 0);
}

TEST_F(DltStrategy, MissingConfiguration_PrepareGoesOnWithBareCommandLine)
{
    reader = Fake_directory_reader();
    reader.add_directory("/etc/", {"hosts"});
    make(vm_housekeeping);
    api.fork_as_child(1);
    testing::internal::CaptureStderr();

    EXPECT_TRUE(strategy->prepare(&api, nullptr));
    (void)strategy->start();

    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_THAT(errors, HasSubstr("Launcher_strategy_DLT : config file= /etc/dlt_ara_hk_vm.conf is NOT available\n"
                                  "LauncherStrategyDLT : get_dltconfig_file failed\n"));
    ASSERT_EQ(api.execs().size(), 1U);
    EXPECT_THAT(api.execs().front().argv, ElementsAre("/usr/bin/dlt-daemon"));
}

TEST_F(DltStrategy, UnreadableEtcAndUnbindableSocket_OnlyTheSocketFailsPrepare)
{
    reader = Fake_directory_reader();
    make(vm_java);
    api.fail_bind();
    testing::internal::CaptureStderr();

    EXPECT_FALSE(strategy->prepare(&api, nullptr));

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("Launcher_strategy_DLT : directory /etc/ doesn't exist \n"),
                      HasSubstr("LauncherStrategyDLT : init_socket_for_notify failed\n")));
}

TEST_F(DltStrategy, StartAndStop_ConsoleQuietWhileRunningVerboseAfter)
{
    make(vm_adaptive);
    api.set_datagram("READY=1\n");
    ASSERT_TRUE(strategy->prepare(&api, nullptr));

    EXPECT_TRUE(strategy->start());
    EXPECT_EQ(quiet_content(), "1 \n");

    testing::internal::CaptureStderr();
    strategy->stop();
    const std::string errors = testing::internal::GetCapturedStderr();

    EXPECT_EQ(quiet_content(), "0 \n");
    EXPECT_THAT(api.commands(), ElementsAre("killall -s 15 dltproxyd"));
    const auto pids = api.forked_pids();
    ASSERT_EQ(pids.size(), 3U);
    const auto sent = api.signals();
    ASSERT_GE(sent.size(), 6U);
    EXPECT_THAT(std::vector<Sent>(sent.begin(), sent.begin() + 3),
                ElementsAre(Sent{pids[0], SIGTERM}, Sent{pids[1], SIGTERM}, Sent{pids[2], SIGTERM}));
    EXPECT_THAT(std::vector<Sent>(sent.begin() + 3, sent.end()),
                ElementsAre(Sent{pids[0], SIGKILL}, Sent{pids[1], SIGKILL}, Sent{pids[2], SIGKILL}));
    EXPECT_THAT(errors, HasSubstr("STOP DLT LAUNCHER ...\n"));
    EXPECT_EQ(errors.find("STOP DLT LAUNCHER done ...\n"), errors.rfind("STOP DLT LAUNCHER done ...\n"));
}

TEST_F(DltStrategy, Stop_RunsProxyCleanupEvenWhenProxyAlreadyEnded)
{
    make(vm_java);
    api.set_datagram("READY=1");
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    ASSERT_TRUE(strategy->start());
    const pid_t log_daemon = api.forked_pids()[0];
    api.ignore_termination(log_daemon);
    api.end_child(api.forked_pids()[1]);

    strategy->stop();

    EXPECT_THAT(api.commands(), ElementsAre("killall -s 15 dltproxyd"));
    EXPECT_THAT(api.signals_to(log_daemon),
                ElementsAre(Sent{log_daemon, SIGTERM}, Sent{log_daemon, SIGKILL}, Sent{log_daemon, SIGKILL}));
}

TEST_F(DltStrategy, LogDaemonForkFailure_NoCompanionsAndConsoleStillQuiet)
{
    make(vm_java);
    api.fail_fork(1);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));

    EXPECT_FALSE(strategy->start());

    EXPECT_EQ(api.fork_count(), 1);
    EXPECT_EQ(quiet_content(), "1 \n");
}

TEST_F(DltStrategy, UnwritableConsole_IsReportedAtStartAndStop)
{
    api.set_quiet_file_path(temp_directory + "/missing/quiet");
    make(vm_housekeeping);
    api.set_datagram("READY=1");
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    testing::internal::CaptureStderr();

    EXPECT_TRUE(strategy->start());
    strategy->stop();

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("DLT_Launcher: Cannot read virtual console file at stop\n"),
                      HasSubstr("DLT_Launcher: Cannot read virtual console file at start\n")));
}

}  // namespace

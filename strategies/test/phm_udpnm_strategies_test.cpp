#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"
#include "strategies/test/fake_directory_reader.hpp"
#include "strategies/test/fake_system_call_api.hpp"

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Sent = Fake_system_call_api::Signal_sent;

namespace {

const std::string path_entry{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"};
const std::string udpnm_directory{"/data/target/etc/adaptive/ara_UdpNm/"};

// ---------------------------------------------------------------- PHM

class PhmStrategy : public testing::Test {
protected:
    void TearDown() override
    {
        api.end_all_children();
        strategy.reset();
    }

    std::vector<std::string> command_line_on(std::uint8_t partition)
    {
        strategy = std::make_unique<Launcher_strategy_PHM>(partition);
        EXPECT_TRUE(strategy->prepare(&api, nullptr));
        api.fork_as_child(api.fork_count() + 1);
        EXPECT_FALSE(strategy->start());
        return api.execs().back().argv;
    }

    Fake_system_call_api api;
    std::unique_ptr<Launcher_strategy_PHM> strategy;
};

TEST_F(PhmStrategy, WatchdogOption_FollowsDevicePresenceExceptOnQemu)
{
    EXPECT_THAT(command_line_on(vm_adaptive), ElementsAre("/usr/bin/quor_phmd", "--autostart", "--dummy_watchdog"));
    EXPECT_THAT(api.stat_paths(), ElementsAre("/dev/watchdog"));

    api.add_existing_path("/dev/watchdog");
    EXPECT_THAT(command_line_on(vm_housekeeping), ElementsAre("/usr/bin/quor_phmd", "--autostart"));
    EXPECT_THAT(command_line_on(qemu_arm64), ElementsAre("/usr/bin/quor_phmd", "--autostart", "--dummy_watchdog"));
    EXPECT_EQ(api.stat_paths().size(), 2U);

    testing::internal::CaptureStderr();
    EXPECT_THAT(command_line_on(partition_unknown), ElementsAre("/usr/bin/quor_phmd", "--autostart"));
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("Launcher_strategy_PHM : no linux partition \n"));

    EXPECT_THAT(api.execs().back().envp,
                ElementsAre(path_entry, "NOTIFY_SOCKET=/var/run/adaptive/ara_PHM/phm_launch_daemon",
                            "APP_INSTANCE_ID=phm-daemon-container"));
}

TEST_F(PhmStrategy, SocketIsBoundAtStartNotAtPrepare)
{
    strategy = std::make_unique<Launcher_strategy_PHM>(vm_java);
    api.set_datagram("READY=1");

    EXPECT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_THAT(api.bound_paths(), IsEmpty());
    EXPECT_TRUE(strategy->start());
    EXPECT_THAT(api.bound_paths(), ElementsAre("/var/run/adaptive/ara_PHM/phm_launch_daemon"));
}

TEST_F(PhmStrategy, ForkFailure_FailsStartWithItsText)
{
    strategy = std::make_unique<Launcher_strategy_PHM>(vm_java);
    api.fail_fork(1);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    testing::internal::CaptureStderr();

    EXPECT_FALSE(strategy->start());

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("[LS_PHM]: phm_daemon can't be created\n"));
    EXPECT_EQ(api.receive_attempts(), 0);
}

TEST_F(PhmStrategy, Stop_OnlyProbesADaemonThatTakesItsTime)
{
    strategy = std::make_unique<Launcher_strategy_PHM>(vm_adaptive);
    api.set_datagram("READY=1");
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    ASSERT_TRUE(strategy->start());
    const pid_t child = api.forked_pids().at(0);
    api.exit_after_probes(child, 2);

    strategy->stop();

    EXPECT_THAT(api.signals_to(child),
                ElementsAre(Sent{child, SIGTERM}, Sent{child, 0}, Sent{child, 0}, Sent{child, 0}, Sent{child, 0}));
    EXPECT_FALSE(api.alive(child));
}

// ---------------------------------------------------------------- UDPNM

class UdpnmStrategy : public testing::Test {
protected:
    void SetUp() override
    {
        reader.add_directory(udpnm_directory,
                             {"quor_udpnm_vosk1_sys02.json", "quor_udpnm_vosk1_sys01.json", "quor_udpnm.json"});
    }

    void TearDown() override
    {
        api.end_all_children();
        strategy.reset();
    }

    void make(std::uint8_t partition)
    {
        strategy = std::make_unique<Launcher_strategy_UDPNM>(partition);
        strategy->set_directory_reader(&reader);
    }

    Fake_system_call_api api;
    Fake_directory_reader reader;
    std::unique_ptr<Launcher_strategy_UDPNM> strategy;
};

TEST_F(UdpnmStrategy, ConfigurationByPartitionAndEnvironment)
{
    const std::vector<std::pair<std::uint8_t, std::string>> cases{{vm_adaptive, "quor_udpnm_vosk1_sys01.json"},
                                                                  {vm_java, "quor_udpnm_vosk1_sys02.json"},
                                                                  {qemu_arm64, "quor_udpnm.json"}};
    int fork_number = 0;
    for (const auto& [partition, configuration] : cases) {
        make(partition);
        api.fork_as_child(++fork_number);
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        EXPECT_FALSE(strategy->start());
        const auto exec = api.execs().back();
        EXPECT_EQ(exec.path, "/usr/bin/quor_udpnmd");
        EXPECT_THAT(exec.argv, ElementsAre("/usr/bin/quor_udpnmd", "-c", udpnm_directory + configuration));
        EXPECT_THAT(exec.envp,
                    ElementsAre(path_entry, "NOTIFY_SOCKET=/var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container",
                                "APP_INSTANCE_ID=udpnm-daemon-1-container"));
    }
    EXPECT_THAT(api.bound_paths(), Each(std::string("/var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container")));
}

TEST_F(UdpnmStrategy, Housekeeping_StartsNothingAndStopSignalsNobody)
{
    make(vm_housekeeping);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    testing::internal::CaptureStderr();

    EXPECT_TRUE(strategy->start());
    strategy->stop();

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher "
                          "running...\n"));
    EXPECT_EQ(api.fork_count(), 0);
    EXPECT_THAT(api.signals(), ElementsAre(Sent{-1, SIGTERM}, Sent{-1, SIGKILL}));
}

TEST_F(UdpnmStrategy, PrepareFails_OnMissingConfigurationDirectoryOrSocket)
{
    reader = Fake_directory_reader();
    reader.add_directory(udpnm_directory, {"quor_udpnm_vosk1_sys01.json"});
    make(vm_housekeeping);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->prepare(&api, nullptr));
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        HasSubstr("Launcher_strategy_UDPNM : config file= " + udpnm_directory + "quor_udpnm.json is NOT available\n"));

    reader = Fake_directory_reader();
    make(vm_adaptive);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->prepare(&api, nullptr));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                AllOf(HasSubstr("Launcher_strategy_UDPNM : directory " + udpnm_directory + " doesn't exist \n"),
                      HasSubstr("is NOT available\n")));

    SetUp();
    make(vm_adaptive);
    api.fail_bind();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->prepare(&api, nullptr));
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("LauncherStrategyUDPNM : init_socket_for_notify failed\n"));
}

TEST_F(UdpnmStrategy, ForkFailure_FailsStartWithItsText)
{
    make(vm_java);
    api.fail_fork(1);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->start());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("[LS_UDPNM]: UdpNM daemon can't be created\n"));
}

TEST_F(UdpnmStrategy, Stop_ReadyChildIgnoringTerminationIsKilled)
{
    make(vm_adaptive);
    api.set_datagram("READY=1");
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    ASSERT_TRUE(strategy->start());
    const pid_t child = api.forked_pids().at(0);
    api.ignore_termination(child);

    strategy->stop();

    EXPECT_THAT(api.signals_to(child), ElementsAre(Sent{child, SIGTERM}, Sent{child, SIGKILL}, Sent{child, SIGKILL}));
}

}  // namespace

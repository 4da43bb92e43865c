#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_daemon.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"
#include "strategies/test/strategy_system.hpp"
#include "support/test/recording_logging_backend.hpp"

using testing::_;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Return;
using Strategy = std::unique_ptr<Launcher_strategy_interface>;

namespace {

Fake_directory_reader& reader()
{
    static Fake_directory_reader configured;
    configured.directories["/etc/"] = {"dlt_ara_java_vm.conf", "dlt_ara_qemu.conf"};
    configured.directories["/data/target/etc/adaptive/ara_UdpNm/"] = {"quor_udpnm_vosk1_sys01.json",
                                                                      "quor_udpnm_vosk1_sys02.json", "quor_udpnm.json"};
    return configured;
}

template <typename Kind>
Strategy make(std::uint8_t partition)
{
    auto strategy = std::make_unique<Kind>(partition);
    strategy->set_directory_reader(&reader());
    return strategy;
}

Strategy make_complex()
{
    auto strategy = std::make_unique<Launcher_strategy_COM_complex>();
    strategy->set_directory_reader(&reader());
    return strategy;
}

template <typename Expected>
bool creates(std::uint8_t type, std::uint8_t partition)
{
    Strategy strategy(Launcher_strategy_interface::createLauncherStrategy(Launcher_configuration{type, partition}));
    return dynamic_cast<Expected*>(strategy.get()) != nullptr;
}

TEST(StrategyCreation, KindAndPartitionSelectTheStrategy)
{
    for (std::uint8_t partition : {vm_adaptive, vm_java, vm_housekeeping, qemu_arm64}) {
        EXPECT_TRUE(creates<Launcher_strategy_COM_daemon>(COM, partition));
        EXPECT_TRUE(creates<Launcher_strategy_DLT>(DLT, partition));
        EXPECT_TRUE(creates<Launcher_strategy_PHM>(PHM, partition));
        EXPECT_TRUE(creates<Launcher_strategy_UDPNM>(UDPNM, partition));
        EXPECT_EQ(creates<Launcher_strategy_COM_complex>(COM_BRIDGE, partition), partition == vm_housekeeping);
        EXPECT_EQ(creates<Launcher_strategy_COM_simple>(COM_BRIDGE, partition), partition != vm_housekeeping);
    }
}

struct Case {
    const char* name;
    std::function<Strategy()> make;
    std::deque<pid_t> forks;
    bool started;
    const char* text;
    int fork_calls;
};

// The companions of a log daemon that never started are not started either; the bridge
// daemon on VLAN 1 not after a failure on VLAN 0; an unawaited daemon "starts" anyway.
TEST(StrategyForkFailure, EachStrategyReportsItAndStopSignalsNobody)
{
    const Case cases[] = {
        {"simple", [] { return make<Launcher_strategy_COM_simple>(vm_adaptive); }, {-1}, true, "", 1},
        {"vlan0", make_complex, {-1}, false, "[LS_COM_C]: com_vlan0_daemon cannot fork\n", 1},
        {"vlan1", make_complex, {4101, -1}, false, "[LS_COM_C]: SOME/IP daemon vlan0/1 can't be started\n", 2},
        {"phm", [] { return Strategy(new Launcher_strategy_PHM(vm_java)); }, {-1}, false,
         "[LS_PHM]: phm_daemon can't be created\n", 1},
        {"udpnm", [] { return make<Launcher_strategy_UDPNM>(vm_java); }, {-1}, false,
         "[LS_UDPNM]: UdpNM daemon can't be created\n", 1},
        {"dlt", [] { return make<Launcher_strategy_DLT>(vm_java); }, {-1}, false, "", 1},
    };
    for (const Case& c : cases) {
        Strategy_system api;
        api.fork_results = c.forks;
        EXPECT_CALL(api, fork()).Times(c.fork_calls);
        EXPECT_CALL(api, recvmsg(_, _, _)).Times(0);
        Strategy strategy = c.make();
        ASSERT_TRUE(strategy->prepare(&api, nullptr)) << c.name;
        testing::internal::CaptureStderr();
        EXPECT_EQ(strategy->start(), c.started) << c.name;
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.text)) << c.name;
        if (c.started) {
            EXPECT_CALL(api, kill(_, _)).Times(0);
            strategy->stop();
        }
    }
}

TEST(StrategyBindFailure, FailsPrepareWithTheStrategysText)
{
    const Case cases[] = {
        {"com", [] { return make<Launcher_strategy_COM_daemon>(vm_adaptive); }, {}, false,
         "[LS_COM_S]: init_socket_for_notify failed\n", 0},
        {"dlt", [] { return make<Launcher_strategy_DLT>(vm_java); }, {}, false,
         "LauncherStrategyDLT : init_socket_for_notify failed\n", 0},
        {"udpnm", [] { return make<Launcher_strategy_UDPNM>(vm_adaptive); }, {}, false,
         "LauncherStrategyUDPNM : init_socket_for_notify failed\n", 0},
    };
    for (const Case& c : cases) {
        Strategy_system api;
        ON_CALL(api, bind(_, _, _)).WillByDefault(Return(-1));
        Strategy strategy = c.make();
        testing::internal::CaptureStderr();
        EXPECT_FALSE(strategy->prepare(&api, nullptr)) << c.name;
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.text)) << c.name;
    }
}

// A ready daemon that ignores the termination is signalled with the probe until it is gone;
// the health manager's daemon is only probed, never killed.
TEST(StrategyStop, TerminationThenProbesUntilTheChildIsGone)
{
    const std::pair<std::function<Strategy()>, int> cases[] = {
        {[] { return make<Launcher_strategy_COM_daemon>(vm_java); }, SIGKILL},
        {[] { return make<Launcher_strategy_COM_simple>(vm_adaptive); }, SIGKILL},
        {[] { return make<Launcher_strategy_UDPNM>(vm_adaptive); }, SIGKILL},
        {[] { return Strategy(new Launcher_strategy_PHM(vm_adaptive)); }, 0},
    };
    for (const auto& [make_strategy, probe] : cases) {
        Strategy_system api;
        testing::InSequence order;
        EXPECT_CALL(api, kill(4101, SIGTERM)).WillOnce(Return(0));
        EXPECT_CALL(api, kill(4101, probe)).WillOnce(Return(0)).WillOnce(Return(-1));
        Strategy strategy = make_strategy();
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        ASSERT_TRUE(strategy->start());
        strategy->stop();
    }
}

// A retried start prepares again: the first preparation's records must go (the sanitizer
// build's leak checker sees them) and the verdict must not change.
TEST(StrategyPrepareTwice, SecondPreparationComesToTheSameVerdict)
{
    for (const Launcher_configuration configuration :
         {Launcher_configuration{COM, vm_adaptive}, Launcher_configuration{COM_BRIDGE, vm_adaptive},
          Launcher_configuration{COM_BRIDGE, vm_housekeeping}, Launcher_configuration{DLT, vm_adaptive},
          Launcher_configuration{PHM, vm_java}, Launcher_configuration{UDPNM, vm_adaptive}}) {
        Strategy_system api;
        Strategy strategy(Launcher_strategy_interface::createLauncherStrategy(configuration));
        testing::internal::CaptureStderr();
        const bool first = strategy->prepare(&api, nullptr);
        EXPECT_EQ(strategy->prepare(&api, nullptr), first) << int{configuration.type};
        (void)testing::internal::GetCapturedStderr();
    }
}

// The facade stays muted for the whole run, so only the DLT strategy, which must not log
// through the platform log while it restarts it, may use it; everyone else's lines would be
// lost. Progress lines never reach standard error, which is kept for failures.
TEST(StrategyLogging, OnlyTheDltStrategyWritesThroughTheFacadeAndProgressStaysOffTheConsole)
{
    ScopedRecordingBackend facade;
    Strategy_system api;
    testing::internal::CaptureStderr();
    {
        Launcher_strategy_COM_complex unprepared;
        EXPECT_FALSE(unprepared.start());
        for (const std::function<Strategy()>& make_strategy :
             std::vector<std::function<Strategy()>>{[] { return make<Launcher_strategy_COM_daemon>(qemu_arm64); },
                                                    make_complex, [] { return make<Launcher_strategy_UDPNM>(qemu_arm64); },
                                                    [] { return Strategy(new Launcher_strategy_PHM(qemu_arm64)); }}) {
            Strategy strategy = make_strategy();
            (void)strategy->prepare(&api, nullptr);
            (void)strategy->start();
            strategy->stop();
        }
        EXPECT_THAT(facade.log->texts(), IsEmpty());
        Strategy dlt = make<Launcher_strategy_DLT>(qemu_arm64);
        ASSERT_TRUE(dlt->prepare(&api, nullptr));
        (void)dlt->start();
        dlt->stop();
    }
    const std::string console = testing::internal::GetCapturedStderr();
    for (const char* progress :
         {"[LS_COM_C]: Stopping", "Launcher_strategy_COM_daemon", "create process /usr", "Start com_daemon PID= ",
          "[LS_COM_S]: com_daemon is ready", "[LS_COM]: did not any", "Launcher_strategy_PHM", "run phm", "=====",
          "watchdog", "phm_daemon is started", "stop PHM daemon", "Launcher_strategy_UDPNM", "command line ARGV",
          "run UdpNm", "udpnm-daemon-1-container is started", "stop UDPNM daemon", "still runinng", "stop DTL",
          "run dlt-process", "[LS_DLT]: dlt_daemon is started", "Launcher_strategy_DLT : run", "Stop virtual console"}) {
        EXPECT_THAT(console, Not(HasSubstr(progress)));
    }
    EXPECT_THAT(facade.log->texts("debug"),
                testing::IsSupersetOf({"Launcher_strategy_DLT : run  PATH/usr/bin/dlt-daemon  ARGU: ",
                                       "stop DTL daemon ...", "STOP DLT LAUNCHER done ..."}));
}

}  // namespace

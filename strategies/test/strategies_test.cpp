// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <sstream>

#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_daemon.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"
#include "support/test/recording_logging_backend.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

using testing::_;
using testing::HasSubstr;
using testing::Not;
using testing::Return;
using Lines = std::vector<std::string>;
using Strategy = std::unique_ptr<Launcher_strategy_interface>;

namespace {

const std::string udpnm{"/data/target/etc/adaptive/ara_UdpNm/"};
const std::string manifests{"/data/target/etc/adaptive/ara_COM/comManifest/"};
const Lines iam{"--iam_shared_lib", "/usr/lib/libvosk1_iam.so.1"};
const Lines tls{"--tls_shared_lib", "/usr/lib/libtls_manager_botan.so.1", "--tls_manifest",
                "/etc/adaptive/ara_COM/com_conf/tls_manager_customer_configuration.json"};

Lines operator+(Lines first, const Lines& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

Lines environment(const std::string& socket, const std::string& instance)
{
    return {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "NOTIFY_SOCKET=" + socket,
            "APP_INSTANCE_ID=" + instance};
}

Lines com_line(const std::string& address, const std::string& interface_name, const Lines& rest)
{
    const Lines options{"-c", "255", "-i", address, "-n", interface_name, "-e", "/var/run/adaptive/ara_Com/ara_com_sm"};
    return Lines{"/usr/bin/com_daemon"} + options + Lines{"--log_mode", "remote", "--log_level", "info"} + rest;
}

// The system as the strategies see it. Forks hand out pids from 4101 unless a test queued
// other results (0: the child's side, whose execve is recorded; -1: a failed fork); each
// child ends at once, every wait hears READY=1, and signals find nobody unless told so.
class System : public testing::NiceMock<Mock_system_call_api> {
public:
    System()
    {
        ON_CALL(*this, fork()).WillByDefault([this] {
            const pid_t queued = fork_results.empty() ? next_pid++ : fork_results.front();
            return fork_results.empty() ? queued : (fork_results.pop_front(), queued);
        });
        ON_CALL(*this, waitpid(_, _, _)).WillByDefault([](pid_t pid, int* status, int) { return *status = 0, pid; });
        ON_CALL(*this, execve(_, _, _)).WillByDefault([this](const char* path, char* const* argv, char* const* envp) {
            execs.push_back({path, argv_strings(argv), argv_strings(envp)});
            return errno = ENOENT, -1;
        });
        // Not open in this process: the handler's poll and close find nothing to do with it.
        ON_CALL(*this, socket(_, _, _)).WillByDefault(Return(900000));
        ON_CALL(*this, recvmsg(_, _, _)).WillByDefault([](int, msghdr* message, int) -> ssize_t {
            return std::memcpy(message->msg_iov[0].iov_base, "READY=1", 7), 7;
        });
        ON_CALL(*this, kill(_, _)).WillByDefault([](pid_t, int) { return errno = ESRCH, -1; });
        ON_CALL(*this, stat(_, _)).WillByDefault(Return(-1));
        ON_CALL(*this, create_thread(_, _)).WillByDefault(real_thread);
    }
    std::deque<pid_t> fork_results;
    std::vector<std::tuple<std::string, Lines, Lines>> execs;  // path, argv, envp

private:
    pid_t next_pid{4101};
};

struct Directories : Directory_reader_interface {
    bool read_entry_names(const std::string& directory, Lines& names) override
    {
        const auto found = entries.find(directory);
        return found != entries.end() && (names = found->second, true);
    }
    std::map<std::string, Lines> entries;
};

struct Addresses : Interface_address_source_interface {
    bool read_ipv6_addresses(std::vector<Interface_address>& found) override { return found = entries, !fails; }
    std::vector<Interface_address> entries;
    bool fails{false};
};

Directories reader;
Addresses addresses;

template <typename Kind, typename... Arguments>
Strategy make(Arguments... arguments)
{
    auto strategy = std::make_unique<Kind>(arguments...);
    if constexpr (!std::is_same_v<Kind, Launcher_strategy_PHM>) {
        strategy->set_directory_reader(&reader);
    }
    if constexpr (std::is_same_v<Kind, Launcher_strategy_COM_simple>) {
        strategy->set_address_source(&addresses);
    }
    return strategy;
}

using Complex = Launcher_strategy_COM_complex;
using Daemon = Launcher_strategy_COM_daemon;
using Dlt = Launcher_strategy_DLT;
using Phm = Launcher_strategy_PHM;
using Simple = Launcher_strategy_COM_simple;
using Udpnm = Launcher_strategy_UDPNM;

class Strategies : public testing::Test {
protected:
    void SetUp() override
    {
        reader.entries = {
            {"/etc/",
             {"hosts", "dlt_ara_adaptive_vm.conf", "dlt_ara_java_vm.conf", "dlt_ara_hk_vm.conf", "dlt_ara_qemu.conf"}},
            {udpnm, {"quor_udpnm_vosk1_sys02.json", "quor_udpnm_vosk1_sys01.json", "quor_udpnm.json"}},
            {"/usr/lib/", {"libvosk1_iam.so.1", "libtls_manager_botan.so.1"}},
            {manifests, {"b.json", ".", "a.json", "notes.txt", "a.json.bak"}}};
        addresses.entries = {{"netns0", "fe80::1", 3}, {"eth1", "fd00::9", 0}, {"netns0", "fd00::5", 0}};
        addresses.fails = false;
    }

    // Runs the strategy up to its child's execve; returns what preparing it wrote.
    // The bridge's VLAN 1 daemon is the second fork: {4101, 0} runs up to its execve.
    std::string expect_run(Strategy strategy, const Lines& argv, const Lines& envp, std::deque<pid_t> forks = {0})
    {
        api.fork_results = forks;
        api.execs.clear();
        testing::internal::CaptureStderr();
        EXPECT_TRUE(strategy->prepare(&api, nullptr));
        const std::string errors = testing::internal::GetCapturedStderr();
        (void)strategy->start();
        EXPECT_EQ(api.execs.at(0), std::make_tuple(argv.front(), argv, envp));
        return errors;
    }

    // Prepares twice, as a retried start does, starts and stops; a child that never was is
    // not signalled.
    void expect_failure(Strategy strategy, std::deque<pid_t> forks, bool prepared, bool started,
                        const std::string& text, bool bind_fails = false)
    {
        System system;
        system.fork_results = forks;
        EXPECT_CALL(system, fork()).Times(static_cast<int>(forks.size()));
        EXPECT_CALL(system, recvmsg(_, _, _)).Times(0);
        ON_CALL(system, bind(_, _, _)).WillByDefault(Return(bind_fails ? -1 : 0));
        EXPECT_CALL(system, kill(testing::Le(0), _)).Times(testing::AnyNumber());
        EXPECT_CALL(system, kill(testing::Gt(0), _))
            .Times(forks.size() > 1 ? testing::AnyNumber() : testing::Exactly(0));
        testing::internal::CaptureStderr();
        EXPECT_EQ(strategy->prepare(&system, nullptr), prepared);
        EXPECT_EQ(strategy->prepare(&system, nullptr), prepared);
        EXPECT_EQ(prepared && strategy->start(), started);
        // Line by line, in order: a child's reaping thread may write between them.
        const std::string written = testing::internal::GetCapturedStderr();
        std::size_t from = 0;
        for (std::size_t begin = 0, end = text.find('\n'); end != std::string::npos;
             begin = end + 1, end = text.find('\n', begin)) {
            const std::string line = text.substr(begin, end + 1 - begin);
            const std::size_t found = written.find(line, from);
            EXPECT_NE(found, std::string::npos) << line << "in:\n" << written;
            from = found == std::string::npos ? from : found + line.size();
        }
        strategy->stop();
        strategy.reset();
    }

    System api;
};

TEST_F(Strategies, KindAndPartitionSelectTheStrategy)
{
    for (std::uint8_t partition : {vm_adaptive, vm_java, vm_housekeeping, qemu_arm64}) {
        const std::type_info& bridge = partition == vm_housekeeping ? typeid(Complex) : typeid(Simple);
        for (const auto& [type, expected] : {std::pair<std::uint8_t, const std::type_info*>{COM, &typeid(Daemon)},
                                             {DLT, &typeid(Dlt)},
                                             {PHM, &typeid(Phm)},
                                             {UDPNM, &typeid(Udpnm)},
                                             {COM_BRIDGE, &bridge}}) {
            Strategy strategy(Launcher_strategy_interface::createLauncherStrategy({type, partition}));
            const Launcher_strategy_interface& made = *strategy;
            EXPECT_EQ(typeid(made), *expected) << int{type} << " on " << int{partition};
        }
    }
}

// What each daemon is run with. Without its configuration the log daemon still runs, on its
// defaults; the emulator's watchdog is never trusted; each security library is looked for on
// its own, and without manifests the dummy one is used.
TEST_F(Strategies, CommandLinesAndEnvironments)
{
    const Lines com = environment(" ", "com-daemon-1-container");
    const Lines dlt = environment("/var/run/adaptive/ara_DLT/dlt_launch_daemon", "dlt-daemon-container");
    const Lines nm = environment("/var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container", "udpnm-daemon-1-container");
    const Lines phm = environment("/var/run/adaptive/ara_PHM/phm_launch_daemon", "phm-daemon-container");
    const Lines found{"-m", manifests + "b.json", "-m", manifests + "a.json", "-m", manifests + "a.json.bak"};
    const Lines dummy{"-m", "/etc/adaptive/someip_dummy.json"};
    const Lines dltd{"/usr/bin/dlt-daemon", "-c"};
    const Lines nmd{"/usr/bin/quor_udpnmd", "-c"};
    const Lines phmd{"/usr/bin/quor_phmd", "--autostart"};
    expect_run(make<Simple>(vm_adaptive), com_line("fd4e:91a2:5c0:3::106", "eth0.3", iam + tls + found), com);
    expect_run(make<Simple>(qemu_arm64), com_line("fd00::5", "netns0", found), com);
    EXPECT_EQ(expect_run(make<Dlt>(vm_adaptive), dltd + Lines{"/etc/dlt_ara_adaptive_vm.conf"}, dlt),
              "Launcher_strategy_DLT :prepare...\n");
    expect_run(make<Dlt>(vm_java), dltd + Lines{"/etc/dlt_ara_java_vm.conf"}, dlt);
    expect_run(make<Dlt>(vm_housekeeping), dltd + Lines{"/etc/dlt_ara_hk_vm.conf"}, dlt);
    expect_run(make<Dlt>(qemu_arm64), dltd + Lines{"/etc/dlt_ara_qemu.conf"}, dlt);
    expect_run(make<Udpnm>(vm_adaptive), nmd + Lines{udpnm + "quor_udpnm_vosk1_sys01.json"}, nm);
    expect_run(make<Udpnm>(vm_java), nmd + Lines{udpnm + "quor_udpnm_vosk1_sys02.json"}, nm);
    expect_run(make<Udpnm>(qemu_arm64), nmd + Lines{udpnm + "quor_udpnm.json"}, nm);
    expect_run(make<Phm>(vm_java), phmd + Lines{"--dummy_watchdog"}, phm);
    expect_run(make<Phm>(partition_unknown), phmd, phm);
    ON_CALL(api, stat(testing::StrEq("/dev/watchdog"), _)).WillByDefault(Return(0));
    expect_run(make<Phm>(vm_housekeeping), phmd, phm);
    expect_run(make<Phm>(qemu_arm64), phmd + Lines{"--dummy_watchdog"}, phm);
    reader.entries = {{"/usr/lib/", {"libvosk1_iam.so.1"}}};
    EXPECT_THAT(expect_run(make<Simple>(vm_java), com_line("fd4e:91a2:5c0:4::107", "eth0.4", iam + dummy), com),
                HasSubstr("Not adding --tls_shared_lib and --tls_manifest!\n"));
    reader.entries = {{"/usr/lib/", {"libtls_manager_botan.so.1.2"}}};
    EXPECT_THAT(expect_run(make<Simple>(vm_java), com_line("fd4e:91a2:5c0:4::107", "eth0.4", tls + dummy), com),
                HasSubstr("library /usr/lib//libvosk1_iam.so.1 not exists!\nNot adding --iam_shared_lib!\n"));
    EXPECT_THAT(expect_run(make<Dlt>(vm_java), {"/usr/bin/dlt-daemon"}, dlt),
                HasSubstr("LauncherStrategyDLT : get_dltconfig_file failed\n"));
    const std::string gateway = "/data/target/etc/adaptive/ara_COM/comManifests_HK/";
    reader.entries = {{gateway + "VLAN_INFOTAINMENT/", {"gw.json"}}, {gateway + "VLAN_CONNECT/", {}}};
    const Lines bridge_env{com.front(), com.back()};
    expect_run(make<Complex>(),
               com_line("fd4e:91a2:5c0:3::8:10", "eth0.3", {"-m", gateway + "VLAN_INFOTAINMENT/gw.json"}), com);
    expect_run(make<Complex>(), com_line("fd4e:91a2:5c0:4::8:10", "eth0.4", dummy), bridge_env, {4101, 0});
}

// Each with its text. The companions of a log daemon that never started are not started
// either, nor the bridge daemon on VLAN 1 after a failure on VLAN 0; an unawaited daemon
// "starts" anyway, and so does one on a partition that runs none. Without a global address
// on the emulator's interface prepare succeeds, and start fails.
TEST_F(Strategies, FailuresAreReportedAndStopSignalsNobody)
{
    expect_failure(make<Simple>(vm_adaptive), {-1}, true, true, "");
    expect_failure(make<Complex>(), {-1}, true, false, "[LS_COM_C]: com_vlan0_daemon cannot fork\n");
    expect_failure(make<Complex>(), {4101, -1}, true, false, "[LS_COM_C]: SOME/IP daemon vlan0/1 can't be started\n");
    expect_failure(make<Phm>(vm_java), {-1}, true, false, "[LS_PHM]: phm_daemon can't be created\n");
    expect_failure(make<Udpnm>(vm_java), {-1}, true, false, "[LS_UDPNM]: UdpNM daemon can't be created\n");
    expect_failure(make<Dlt>(vm_java), {-1}, true, false, "");
    expect_failure(
        make<Dlt>(vm_java), {4101, -1, -1}, true, false,
        "[LS_DLT]: dlt proxy daemon is not able to start\n[LS_DLT]: dlt system daemon is not able to start\n");
    expect_failure(make<Udpnm>(vm_housekeeping), {}, true, true,
                   "[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher running...\n");
    expect_failure(make<Daemon>(vm_adaptive), {}, false, false, "[LS_COM_S]: init_socket_for_notify failed\n", true);
    expect_failure(make<Dlt>(vm_java), {}, false, false, "LauncherStrategyDLT : init_socket_for_notify failed\n", true);
    expect_failure(make<Udpnm>(vm_java), {}, false, false, "LauncherStrategyUDPNM : init_socket_for_notify failed\n",
                   true);
    expect_failure(make<Simple>(vm_housekeeping), {}, false, false, "Unknown partition. Terminating.\n");
    addresses.entries = {{"netns0", "fe80::1", 2}, {"eth1", "fd00::9", 0}};
    expect_failure(make<Simple>(qemu_arm64), {}, true, false, "");
    addresses.fails = true;
    expect_failure(make<Simple>(qemu_arm64), {}, false, false, "Cannot get network interface of qemu.\n");
    reader.entries[udpnm] = {"quor_udpnm_vosk1_sys01.json"};
    expect_failure(make<Udpnm>(vm_housekeeping), {}, false, false,
                   "Launcher_strategy_UDPNM : config file= " + udpnm + "quor_udpnm.json is NOT available\n");
    reader.entries.clear();
    expect_failure(make<Udpnm>(vm_java), {}, false, false,
                   "Launcher_strategy_UDPNM : directory " + udpnm + " doesn't exist \n");
    EXPECT_FALSE(make<Simple>(vm_adaptive)->prepare(nullptr, nullptr));
}

// A ready daemon that ignores the termination is probed until it is gone; the health
// manager's daemon is only probed, never killed.
TEST_F(Strategies, StopTerminatesThenProbesUntilTheChildIsGone)
{
    std::pair<Strategy, int> cases[] = {{make<Daemon>(vm_java), SIGKILL},
                                        {make<Simple>(vm_adaptive), SIGKILL},
                                        {make<Udpnm>(vm_adaptive), SIGKILL},
                                        {make<Phm>(vm_adaptive), 0}};
    for (auto& [strategy, probe] : cases) {
        System system;
        testing::InSequence order;
        EXPECT_CALL(system, kill(4101, SIGTERM)).WillOnce(Return(0));
        EXPECT_CALL(system, kill(4101, probe)).WillOnce(Return(0)).WillOnce(Return(-1));
        ASSERT_TRUE(strategy->prepare(&system, nullptr));
        ASSERT_TRUE(strategy->start());
        strategy->stop();
        strategy.reset();
    }
}

// A termination that cannot be delivered counts as not done: the kill follows at once.
TEST_F(Strategies, ComComplex_StopKillsOnlyAChildTheTerminationDidNotReach)
{
    for (const bool vlan0_gone : {false, true}) {
        System system;
        testing::InSequence order;
        EXPECT_CALL(system, kill(4101, SIGTERM)).WillOnce(Return(vlan0_gone ? -1 : 0));
        EXPECT_CALL(system, kill(4102, SIGTERM)).WillOnce(Return(0));
        EXPECT_CALL(system, kill(4101, SIGKILL)).Times(vlan0_gone ? 1 : 0);
        Strategy strategy = make<Complex>();
        ASSERT_TRUE(strategy->prepare(&system, nullptr));
        ASSERT_TRUE(strategy->start());
        strategy->stop();
    }
}

// The console is quiet while the log daemon runs and verbose again after it (logging off);
// the emulator's is left alone.
TEST_F(Strategies, Dlt_ConsoleQuietWhileRunningAndAnyLeftoverProxyEnded)
{
    const std::string quiet = testing::TempDir() + "strata_dlt_quiet";
    for (const auto& [partition, contents] :
         {std::pair<std::uint8_t, std::string>{vm_adaptive, "1 \n0 \n"}, {qemu_arm64, ""}}) {
        (void)::unlink(quiet.c_str());
        System system;
        ON_CALL(system, get_quiet_file_path()).WillByDefault(Return(quiet));
        testing::InSequence order;
        for (const int signal : {SIGTERM, SIGKILL}) {
            for (const pid_t pid : {4101, 4102, 4103}) {
                EXPECT_CALL(system, kill(pid, signal));
            }
        }
        EXPECT_CALL(system, system("killall -s 15 dltproxyd"));
        Strategy strategy = make<Dlt>(partition);
        ASSERT_TRUE(strategy->prepare(&system, nullptr));
        EXPECT_TRUE(strategy->start());
        std::stringstream seen;
        seen << std::ifstream(quiet).rdbuf();
        strategy->stop();
        seen << std::ifstream(quiet).rdbuf();
        EXPECT_EQ(seen.str(), contents);
    }
    (void)::unlink(quiet.c_str());
}

TEST_F(Strategies, Phm_SocketIsBoundAtStartNotAtPrepare)
{
    Strategy strategy = make<Phm>(vm_java);
    EXPECT_CALL(api, bind(_, _, _)).Times(0);
    EXPECT_TRUE(strategy->prepare(&api, nullptr));
    testing::Mock::VerifyAndClearExpectations(&api);
    EXPECT_CALL(api, bind(_, _, _));
    EXPECT_TRUE(strategy->start());
}

// The facade stays muted for the whole run, so only the DLT strategy, which must not log
// through the platform log while it restarts it, may use it; everyone else's lines would be
// lost. Progress lines never reach standard error, which is kept for failures, nor do the
// texts that go to the platform log at error level.
TEST_F(Strategies, OnlyTheDltStrategyWritesThroughTheFacadeAndProgressStaysOffTheConsole)
{
    ScopedRecordingBackend facade;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(make<Complex>()->start());
    Strategy all[] = {make<Daemon>(qemu_arm64), make<Simple>(qemu_arm64), make<Udpnm>(qemu_arm64),
                      make<Phm>(qemu_arm64),    make<Complex>(),          make<Dlt>(qemu_arm64)};
    for (Strategy& strategy : all) {
        EXPECT_THAT(facade.log->texts(), testing::IsEmpty());
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        (void)strategy->start();
        strategy->stop();
    }
    const std::string console = testing::internal::GetCapturedStderr();
    for (const char* progress :
         {"Please prepare", "Launcher_strategy_COM", "[LS_COM_C]: Stopping", "com_daemon is ready",
          "[LS_COM]: ", "Launcher_strategy_PHM", "=====", "is started", "stop PHM daemon", "Launcher_strategy_UDPNM",
          "command line ARGV", "still runinng", "stop DTL", "Launcher_strategy_DLT : run", "Stop virtual console"}) {
        EXPECT_THAT(console, Not(HasSubstr(progress)));
    }
    EXPECT_THAT(facade.log->texts("debug"),
                testing::IsSupersetOf({"Launcher_strategy_DLT : run  PATH/usr/bin/dlt-daemon  ARGU: ",
                                       "stop DTL daemon ...", "STOP DLT LAUNCHER done ..."}));
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <deque>
#include <fstream>
#include <functional>
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

Lines strings(char* const* list)
{
    Lines result;
    for (; *list != nullptr; ++list) {
        result.emplace_back(*list);
    }
    return result;
}

Lines environment(const std::string& socket, const std::string& instance)
{
    return {"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "NOTIFY_SOCKET=" + socket,
            "APP_INSTANCE_ID=" + instance};
}

Lines com_line(const std::string& address, const std::string& interface_name, const Lines& rest)
{
    return Lines{"/usr/bin/com_daemon",
                 "-c",
                 "255",
                 "-i",
                 address,
                 "-n",
                 interface_name,
                 "-e",
                 "/var/run/adaptive/ara_Com/ara_com_sm",
                 "--log_mode",
                 "remote",
                 "--log_level",
                 "info"} +
           rest;
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
            execs.push_back({path, strings(argv), strings(envp)});
            return errno = ENOENT, -1;
        });
        // Not open in this process: the handler's poll and close find nothing to do with it.
        ON_CALL(*this, socket(_, _, _)).WillByDefault(Return(900000));
        ON_CALL(*this, recvmsg(_, _, _)).WillByDefault([](int, msghdr* message, int) -> ssize_t {
            return std::memcpy(message->msg_iov[0].iov_base, "READY=1", 7), 7;
        });
        ON_CALL(*this, kill(_, _)).WillByDefault([](pid_t, int) { return errno = ESRCH, -1; });
        ON_CALL(*this, stat(_, _)).WillByDefault(Return(-1));
        ON_CALL(*this, create_thread(_, _)).WillByDefault([](void* (*function)(void*), void* argument) {
            return new std::thread(function, argument);
        });
        ON_CALL(*this, get_quiet_file_path()).WillByDefault(Return("/nonexistent/quiet"));
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

template <typename Kind>
std::function<Strategy()> maker(std::uint8_t partition)
{
    return [partition] { return make<Kind>(partition); };
}

const std::function<Strategy()> complex = [] { return make<Launcher_strategy_COM_complex>(); };

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
    System api;
};

TEST_F(Strategies, KindAndPartitionSelectTheStrategy)
{
    for (std::uint8_t partition : {vm_adaptive, vm_java, vm_housekeeping, qemu_arm64}) {
        const auto kind = [partition](std::uint8_t type) {
            Strategy strategy(Launcher_strategy_interface::createLauncherStrategy({type, partition}));
            Launcher_strategy_interface& made = *strategy;
            return std::string(typeid(made).name());
        };
        EXPECT_EQ(kind(COM), typeid(Launcher_strategy_COM_daemon).name());
        EXPECT_EQ(kind(DLT), typeid(Launcher_strategy_DLT).name());
        EXPECT_EQ(kind(PHM), typeid(Launcher_strategy_PHM).name());
        EXPECT_EQ(kind(UDPNM), typeid(Launcher_strategy_UDPNM).name());
        EXPECT_EQ(kind(COM_BRIDGE), partition == vm_housekeeping ? typeid(Launcher_strategy_COM_complex).name()
                                                                 : typeid(Launcher_strategy_COM_simple).name());
    }
}

// What each daemon is run with, seen on the child's side of fork. Without its
// configuration the log daemon still runs, on its defaults; the emulator's watchdog is
// never trusted.
TEST_F(Strategies, CommandLinesAndEnvironments)
{
    const Lines com = environment(" ", "com-daemon-1-container");
    const Lines dlt = environment("/var/run/adaptive/ara_DLT/dlt_launch_daemon", "dlt-daemon-container");
    const Lines nm = environment("/var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container", "udpnm-daemon-1-container");
    const Lines phm = environment("/var/run/adaptive/ara_PHM/phm_launch_daemon", "phm-daemon-container");
    const Lines found{"-m", manifests + "b.json", "-m", manifests + "a.json", "-m", manifests + "a.json.bak"};
    const std::tuple<std::function<Strategy()>, int, Lines, Lines> cases[] = {
        {maker<Launcher_strategy_COM_simple>(vm_adaptive), 0,
         com_line("fd4e:91a2:5c0:3::106", "eth0.3", iam + tls + found), com},
        {maker<Launcher_strategy_COM_simple>(qemu_arm64), 0, com_line("fd00::5", "netns0", found), com},
        {maker<Launcher_strategy_DLT>(vm_adaptive),
         0,
         {"/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_adaptive_vm.conf"},
         dlt},
        {maker<Launcher_strategy_DLT>(vm_java), 0, {"/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_java_vm.conf"}, dlt},
        {maker<Launcher_strategy_DLT>(vm_housekeeping),
         0,
         {"/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_hk_vm.conf"},
         dlt},
        {maker<Launcher_strategy_DLT>(qemu_arm64), 0, {"/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_qemu.conf"}, dlt},
        {[] {
             reader.entries["/etc/"] = {"hosts"};
             return make<Launcher_strategy_DLT>(vm_java);
         },
         0,
         {"/usr/bin/dlt-daemon"},
         dlt},
        {maker<Launcher_strategy_UDPNM>(vm_adaptive),
         0,
         {"/usr/bin/quor_udpnmd", "-c", udpnm + "quor_udpnm_vosk1_sys01.json"},
         nm},
        {maker<Launcher_strategy_UDPNM>(vm_java),
         0,
         {"/usr/bin/quor_udpnmd", "-c", udpnm + "quor_udpnm_vosk1_sys02.json"},
         nm},
        {maker<Launcher_strategy_UDPNM>(qemu_arm64), 0, {"/usr/bin/quor_udpnmd", "-c", udpnm + "quor_udpnm.json"}, nm},
        {maker<Launcher_strategy_PHM>(vm_java), -1, {"/usr/bin/quor_phmd", "--autostart", "--dummy_watchdog"}, phm},
        {maker<Launcher_strategy_PHM>(vm_housekeeping), 0, {"/usr/bin/quor_phmd", "--autostart"}, phm},
        {maker<Launcher_strategy_PHM>(qemu_arm64), 0, {"/usr/bin/quor_phmd", "--autostart", "--dummy_watchdog"}, phm},
        {maker<Launcher_strategy_PHM>(partition_unknown), -1, {"/usr/bin/quor_phmd", "--autostart"}, phm}};
    for (const auto& [make_strategy, watchdog, argv, envp] : cases) {
        SetUp();
        api.fork_results = {0};
        ON_CALL(api, stat(testing::StrEq("/dev/watchdog"), _)).WillByDefault(Return(watchdog));
        Strategy strategy = make_strategy();
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        (void)strategy->start();
        ASSERT_FALSE(api.execs.empty());
        EXPECT_EQ(std::get<0>(api.execs.back()), argv.front());
        EXPECT_EQ(std::get<1>(api.execs.back()), argv);
        EXPECT_EQ(std::get<2>(api.execs.back()), envp);
        api.execs.clear();
    }
}

// Each security library is looked for on its own; without manifests the dummy one is used.
TEST_F(Strategies, ComSimple_EachSecurityLibraryOnItsOwn)
{
    for (const auto& [libraries, options] :
         {std::pair<Lines, Lines>{{}, {}}, {{"libvosk1_iam.so.1"}, iam}, {{"libtls_manager_botan.so.1.2"}, tls}}) {
        reader.entries = {{"/usr/lib/", libraries}};
        api.fork_results = {0};
        testing::internal::CaptureStderr();
        Strategy strategy = make<Launcher_strategy_COM_simple>(vm_java);
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(strategy->start());
        EXPECT_EQ(errors.find("Not adding --iam_shared_lib!\n") == std::string::npos, options == iam);
        EXPECT_EQ(errors.find("Not adding --tls_shared_lib and --tls_manifest!\n") == std::string::npos,
                  options == tls);
        EXPECT_THAT(errors, HasSubstr(options == iam ? "library /usr/lib//libtls_manager_botan.so.1 not exists!\n"
                                                     : "library /usr/lib//libvosk1_iam.so.1 not exists!\n"));
        EXPECT_EQ(std::get<1>(api.execs.back()),
                  com_line("fd4e:91a2:5c0:4::107", "eth0.4", options + Lines{"-m", "/etc/adaptive/someip_dummy.json"}));
    }
}

// Only a global address on the emulator's interface will do; without one prepare still
// succeeds and start reports it.
TEST_F(Strategies, ComSimple_AddressesOrTheirAbsence)
{
    const std::tuple<std::uint8_t, bool, bool, const char*> cases[] = {
        {qemu_arm64, true, false, "Cannot get network interface of qemu.\n"},
        {vm_housekeeping, false, false, "Unknown partition. Terminating.\n"},
        {qemu_arm64, false, true, ""}};
    addresses.entries = {{"netns0", "fe80::1", 2}, {"eth1", "fd00::9", 0}};
    for (const auto& [partition, list_fails, prepared, text] : cases) {
        addresses.fails = list_fails;
        Strategy strategy = make<Launcher_strategy_COM_simple>(partition);
        testing::internal::CaptureStderr();
        EXPECT_EQ(strategy->prepare(&api, nullptr), prepared);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), text);
        EXPECT_FALSE(prepared && strategy->start());
    }
    EXPECT_CALL(api, fork()).Times(0);
    EXPECT_FALSE(Launcher_strategy_COM_simple(vm_adaptive).prepare(nullptr, nullptr));
}

struct Failure {
    std::function<Strategy()> make;
    std::deque<pid_t> forks;
    bool bind_fails;
    bool prepared;
    bool started;
    std::string text;
    int fork_calls;
};

// A failed fork or notify socket, or a missing configuration, each with its text. The
// companions of a log daemon that never started are not started either, nor the bridge
// daemon on VLAN 1 after a failure on VLAN 0; an unawaited daemon "starts" anyway. A second
// preparation (a retried start) comes to the same verdict and frees the first one's records.
TEST_F(Strategies, FailuresAreReportedAndStopSignalsNobody)
{
    const Failure cases[] = {
        {maker<Launcher_strategy_COM_simple>(vm_adaptive), {-1}, false, true, true, "", 1},
        {complex, {-1}, false, true, false, "[LS_COM_C]: com_vlan0_daemon cannot fork\n", 1},
        {complex, {4101, -1}, false, true, false, "[LS_COM_C]: SOME/IP daemon vlan0/1 can't be started\n", 2},
        {maker<Launcher_strategy_PHM>(vm_java), {-1}, false, true, false, "[LS_PHM]: phm_daemon can't be created\n", 1},
        {maker<Launcher_strategy_UDPNM>(vm_java),
         {-1},
         false,
         true,
         false,
         "[LS_UDPNM]: UdpNM daemon can't be created\n",
         1},
        {maker<Launcher_strategy_DLT>(vm_java), {-1}, false, true, false, "", 1},
        {maker<Launcher_strategy_COM_daemon>(vm_adaptive),
         {},
         true,
         false,
         false,
         "[LS_COM_S]: init_socket_for_notify failed\n",
         0},
        {maker<Launcher_strategy_DLT>(vm_java),
         {},
         true,
         false,
         false,
         "LauncherStrategyDLT : init_socket_for_notify failed\n",
         0},
        {maker<Launcher_strategy_UDPNM>(vm_adaptive),
         {},
         true,
         false,
         false,
         "LauncherStrategyUDPNM : init_socket_for_notify failed\n",
         0},
        {[] {
             reader.entries.erase(udpnm);
             return make<Launcher_strategy_UDPNM>(vm_adaptive);
         },
         {},
         false,
         false,
         false,
         "Launcher_strategy_UDPNM : directory " + udpnm + " doesn't exist \n",
         0},
        {[] {
             reader.entries[udpnm] = {"quor_udpnm_vosk1_sys01.json"};
             return make<Launcher_strategy_UDPNM>(vm_housekeeping);
         },
         {},
         false,
         false,
         false,
         "Launcher_strategy_UDPNM : config file= " + udpnm + "quor_udpnm.json is NOT available\n",
         0}};
    for (const Failure& c : cases) {
        SetUp();
        System system;
        system.fork_results = c.forks;
        EXPECT_CALL(system, fork()).Times(c.fork_calls);
        EXPECT_CALL(system, recvmsg(_, _, _)).Times(0);
        ON_CALL(system, bind(_, _, _)).WillByDefault(Return(c.bind_fails ? -1 : 0));
        Strategy strategy = c.make();
        testing::internal::CaptureStderr();
        EXPECT_EQ(strategy->prepare(&system, nullptr), c.prepared);
        EXPECT_EQ(strategy->prepare(&system, nullptr), c.prepared);
        EXPECT_EQ(c.prepared && strategy->start(), c.started);
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.text)) << c.text;
        EXPECT_CALL(system, kill(testing::Le(0), _)).Times(testing::AnyNumber());
        EXPECT_CALL(system, kill(testing::Gt(0), _))
            .Times(c.forks.size() > 1 ? testing::AnyNumber() : testing::Exactly(0));
        strategy->stop();
    }
}

// A ready daemon that ignores the termination is probed until it is gone; the health
// manager's daemon is only probed, never killed.
TEST_F(Strategies, StopTerminatesThenProbesUntilTheChildIsGone)
{
    const std::pair<std::function<Strategy()>, int> cases[] = {
        {maker<Launcher_strategy_COM_daemon>(vm_java), SIGKILL},
        {maker<Launcher_strategy_COM_simple>(vm_adaptive), SIGKILL},
        {maker<Launcher_strategy_UDPNM>(vm_adaptive), SIGKILL},
        {maker<Launcher_strategy_PHM>(vm_adaptive), 0}};
    for (const auto& [make_strategy, probe] : cases) {
        System system;
        testing::InSequence order;
        EXPECT_CALL(system, kill(4101, SIGTERM)).WillOnce(Return(0));
        EXPECT_CALL(system, kill(4101, probe)).WillOnce(Return(0)).WillOnce(Return(-1));
        Strategy strategy = make_strategy();
        ASSERT_TRUE(strategy->prepare(&system, nullptr));
        ASSERT_TRUE(strategy->start());
        strategy->stop();
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
        Strategy strategy = make<Launcher_strategy_COM_complex>();
        ASSERT_TRUE(strategy->prepare(&system, nullptr));
        ASSERT_TRUE(strategy->start());
        testing::internal::CaptureStderr();
        strategy->stop();
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(errors.find("[LS_COM_C]: Sending Kill signal to com_vlan0_daemon...\n") != std::string::npos,
                  vlan0_gone);
        EXPECT_THAT(errors, Not(testing::AnyOf(HasSubstr("Time out"), HasSubstr("com_vlan1_daemon"))));
    }
}

TEST_F(Strategies, Dlt_CompanionsShareTheEnvironmentAndTheirFailuresAreReported)
{
    api.fork_results = {4101, 0, 0};
    Strategy strategy = make<Launcher_strategy_DLT>(vm_adaptive);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_CALL(api, recvmsg(_, _, _)).Times(0);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->start());
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("[LS_DLT]: dlt proxy daemon is not able to start\n"
                          "[LS_DLT]: dlt system daemon is not able to start\n"));
    const Lines envp = environment("/var/run/adaptive/ara_DLT/dlt_launch_daemon", "dlt-daemon-container");
    EXPECT_EQ(
        api.execs.at(0),
        std::make_tuple(std::string("/usr/bin/dltproxyd"),
                        Lines{"/usr/bin/dltproxyd", "-c", "/data/target/etc/adaptive/ara_DLT/dlt_proxy.json"}, envp));
    EXPECT_EQ(api.execs.at(1), std::make_tuple(std::string("/usr/bin/dlt-system"), Lines{"/usr/bin/dlt-system"}, envp));
}

// The console is quiet while the log daemon runs and verbose again after it: logging off.
// A console that cannot be written is reported; the emulator's is left alone.
TEST_F(Strategies, Dlt_ConsoleQuietWhileRunningAndAnyLeftoverProxyEnded)
{
    const std::string quiet = testing::TempDir() + "strata_dlt_quiet";
    for (const auto& [partition, path, contents] :
         {std::tuple<std::uint8_t, std::string, std::string>{vm_adaptive, quiet, "1 \n0 \n"},
          {qemu_arm64, quiet, ""},
          {vm_housekeeping, "/nonexistent/quiet", ""}}) {
        (void)::unlink(quiet.c_str());
        System system;
        ON_CALL(system, get_quiet_file_path()).WillByDefault(Return(path));
        testing::InSequence order;
        for (const int signal : {SIGTERM, SIGKILL}) {
            for (const pid_t pid : {4101, 4102, 4103}) {
                EXPECT_CALL(system, kill(pid, signal));
            }
        }
        EXPECT_CALL(system, system("killall -s 15 dltproxyd"));
        Strategy strategy = make<Launcher_strategy_DLT>(partition);
        ASSERT_TRUE(strategy->prepare(&system, nullptr));
        testing::internal::CaptureStderr();
        EXPECT_TRUE(strategy->start());
        std::stringstream seen;
        seen << std::ifstream(quiet).rdbuf();
        strategy->stop();
        seen << std::ifstream(quiet).rdbuf();
        EXPECT_EQ(seen.str(), contents);
        EXPECT_EQ(
            testing::internal::GetCapturedStderr().find("Cannot read virtual console file at st") != std::string::npos,
            partition == vm_housekeeping);
    }
    (void)::unlink(quiet.c_str());
}

TEST_F(Strategies, Udpnm_OnHousekeepingStartsNothingAndSignalsNoChild)
{
    Strategy strategy = make<Launcher_strategy_UDPNM>(vm_housekeeping);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_CALL(api, fork()).Times(0);
    EXPECT_CALL(api, kill(testing::Gt(0), _)).Times(0);
    EXPECT_CALL(api, kill(-1, _)).Times(testing::AnyNumber());
    testing::internal::CaptureStderr();
    EXPECT_TRUE(strategy->start());
    strategy->stop();
    EXPECT_THAT(
        testing::internal::GetCapturedStderr(),
        HasSubstr("[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher running...\n"));
}

TEST_F(Strategies, Phm_SocketIsBoundAtStartNotAtPrepare)
{
    Strategy strategy = make<Launcher_strategy_PHM>(vm_java);
    EXPECT_CALL(api, bind(_, _, _)).Times(0);
    EXPECT_TRUE(strategy->prepare(&api, nullptr));
    testing::Mock::VerifyAndClearExpectations(&api);
    EXPECT_CALL(api, bind(_, _, _)).WillOnce([](int, const sockaddr* address, socklen_t) {
        return std::strcmp(reinterpret_cast<const sockaddr_un*>(address)->sun_path,
                           "/var/run/adaptive/ara_PHM/phm_launch_daemon");
    });
    EXPECT_TRUE(strategy->start());
}

// The facade stays muted for the whole run, so only the DLT strategy, which must not log
// through the platform log while it restarts it, may use it; everyone else's lines would be
// lost. Progress lines never reach standard error, which is kept for failures.
TEST_F(Strategies, OnlyTheDltStrategyWritesThroughTheFacadeAndProgressStaysOffTheConsole)
{
    ScopedRecordingBackend facade;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(complex()->start());
    for (const auto& make_strategy :
         {maker<Launcher_strategy_COM_daemon>(qemu_arm64), maker<Launcher_strategy_COM_simple>(qemu_arm64),
          maker<Launcher_strategy_UDPNM>(qemu_arm64), maker<Launcher_strategy_PHM>(qemu_arm64), complex,
          maker<Launcher_strategy_DLT>(qemu_arm64)}) {
        EXPECT_THAT(facade.log->texts(), testing::IsEmpty());
        Strategy strategy = make_strategy();
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        (void)strategy->start();
        strategy->stop();
    }
    const std::string console = testing::internal::GetCapturedStderr();
    for (const char* progress :
         {"Launcher_strategy_COM", "[LS_COM_C]: Stopping", "Start com_daemon PID= ", "com_daemon is ready",
          "[LS_COM]: ", "Launcher_strategy_PHM", "run phm", "=====", "watchdog", "is started", "stop PHM daemon",
          "Launcher_strategy_UDPNM", "command line ARGV", "stop UDPNM daemon", "still runinng", "stop DTL",
          "Launcher_strategy_DLT : run", "Stop virtual console"}) {
        EXPECT_THAT(console, Not(HasSubstr(progress)));
    }
    EXPECT_THAT(facade.log->texts("debug"),
                testing::IsSupersetOf({"Launcher_strategy_DLT : run  PATH/usr/bin/dlt-daemon  ARGU: ",
                                       "stop DTL daemon ...", "STOP DLT LAUNCHER done ..."}));
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
// The plan against partition images in a temporary folder: the launcher's strategies run
// against the recording system, which must see what a real pass would do and do none of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/un.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "process/system_call_api.hpp"
#include "strategies/directory_reader.hpp"
#include "tools/launcher_plan/launch_planner.hpp"
#include "tools/launcher_plan/plan_check.hpp"
#include "tools/launcher_plan/plan_options.hpp"
#include "tools/launcher_plan/plan_printer.hpp"
#include "tools/launcher_plan/proc_address_source.hpp"

using testing::ElementsAre;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

namespace {

const std::string path_entry{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"};
const std::string adaptive{"/data/target/etc/adaptive"};

class Plan_test : public testing::Test {
protected:
    void SetUp() override
    {
        char name[] = "/tmp/strata-plan-test.XXXXXX";
        ASSERT_NE(::mkdtemp(name), nullptr);
        root = name;
    }
    void TearDown() override { std::filesystem::remove_all(root); }

    void add(const std::string& path, const std::string& content = "")
    {
        std::filesystem::create_directories(std::filesystem::path(root + path).parent_path());
        std::ofstream(root + path) << content;
    }

    // The plan of a configuration, with the tool's lines on standard error.
    Launch_plan plan(std::uint8_t kind, std::uint8_t partition)
    {
        Launch_plan made;
        Recording_system_call_api api(system, root, made);
        api.set_hostname("host");
        Directory_reader reader;
        Launch_planner planner(api, reader, root, made);
        testing::internal::CaptureStderr();
        EXPECT_TRUE(planner.make(Launcher_configuration{kind, partition}));
        errors = testing::internal::GetCapturedStderr();
        return made;
    }

    System_call_api system;
    std::string root;
    std::string errors;
};

// Both VLAN daemons, with the dummy manifest where a VLAN has none, and nothing acted on.
TEST_F(Plan_test, Housekeeping_Bridge_TwoVlanDaemons_ManifestOrDummy)
{
    add(adaptive + "/ara_COM/comManifests_HK/VLAN_CONNECT/connect.json");
    add("/usr/lib/libvosk1_iam.so.1");
    const Launch_plan made = plan(COM_BRIDGE, vm_housekeeping);
    EXPECT_EQ(std::make_pair(made.strategy, made.kind_name),
              std::make_pair(std::string("Launcher_strategy_COM_complex"), std::string("COM_BRIDGE_LAUNCHER")));
    const Planned_read connect{adaptive + "/ara_COM/comManifests_HK/VLAN_CONNECT/", "folder", true, {"connect.json"}};
    EXPECT_TRUE(std::any_of(made.reads.begin(), made.reads.end(), [&connect](const Planned_read& read) {
        return std::tie(read.path, read.kind, read.found, read.entries) ==
               std::tie(connect.path, connect.kind, connect.found, connect.entries);
    }));
    ASSERT_EQ(made.daemons.size(), 2U);
    const std::string security = "--iam_shared_lib /usr/lib/libvosk1_iam.so.1";
    const std::string first = Plan_printer::quoted(made.daemons[0].argv);
    const std::string second = Plan_printer::quoted(made.daemons[1].argv);
    EXPECT_THAT(first, HasSubstr("-i fd4e:91a2:5c0:3::8:10 -n eth0.3"));
    EXPECT_THAT(first, HasSubstr(security));
    EXPECT_THAT(first, HasSubstr("-m /etc/adaptive/someip_dummy.json"));
    EXPECT_THAT(second, HasSubstr("-m " + adaptive + "/ara_COM/comManifests_HK/VLAN_CONNECT/connect.json"));
    EXPECT_EQ(made.daemons[0].envp, (Lines{path_entry, "NOTIFY_SOCKET= ", "APP_INSTANCE_ID=com-daemon-1-container"}));
    EXPECT_EQ(made.daemons[1].envp, (Lines{path_entry, "APP_INSTANCE_ID=com-daemon-1-container"}));
    EXPECT_FALSE(made.daemons[0].readiness_awaited);
    EXPECT_EQ((Lines{made.daemons[0].stop.bound}), (Lines{"2 s"}));
    const std::string no_tls = "library /usr/lib//libtls_manager_botan.so.1 not exists!";
    EXPECT_THAT(made.console, ElementsAre(no_tls, "Not adding --tls_shared_lib and --tls_manifest!",
                                          "Launcher read from directory = " + adaptive +
                                              "/ara_COM/comManifests_HK/VLAN_INFOTAINMENT/ failed ",
                                          no_tls, "Not adding --tls_shared_lib and --tls_manifest!"));
    EXPECT_TRUE(made.bound_sockets.empty());
    EXPECT_EQ(made.stop_signals.size(), 2U);
    EXPECT_EQ(errors, "");
}

// A missing configuration file: the line the launcher prints, and the daemon without -c;
// the socket planned but not bound, the console attribute noted but not written.
TEST_F(Plan_test, Dlt_MissingConfiguration_LineAndNoOption_NothingWritten)
{
    add("/sys/devices/virtual/tty/hvc1/quiet", "0\n");
    add("/etc/hostname");
    const Launch_plan made = plan(DLT, vm_java);
    ASSERT_EQ(made.daemons.size(), 3U);
    EXPECT_EQ(made.daemons[0].argv, (Lines{"/usr/bin/dlt-daemon"}));
    EXPECT_EQ(made.daemons[1].argv[0], "/usr/bin/dltproxyd");
    EXPECT_EQ(made.daemons[0].readiness_socket, "/var/run/adaptive/ara_DLT/dlt_launch_daemon");
    EXPECT_EQ(made.daemons[0].readiness_limit_seconds, 3U);
    EXPECT_THAT(made.console, ElementsAre("Launcher_strategy_DLT :prepare...",
                                          "Launcher_strategy_DLT : config file= /etc/dlt_ara_java_vm.conf is NOT available",
                                          "LauncherStrategyDLT : get_dltconfig_file failed",
                                          "Launcher_strategy_DLT : start..."));
    EXPECT_EQ(made.bound_sockets, (Lines{"/var/run/adaptive/ara_DLT/dlt_launch_daemon"}));
    EXPECT_EQ(made.commands, (Lines{"killall -s 15 dltproxyd"}));
    EXPECT_EQ(made.written_files.size(), 2U);
    std::ifstream quiet(root + "/sys/devices/virtual/tty/hvc1/quiet");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(quiet), {}), "0\n");
    EXPECT_THAT(made.notes.at(0), HasSubstr("no marker file"));

    add("/etc/dlt_ara_java_vm.conf");
    add("/data/target/etc/adaptive/ara_DLT/DLTActivation");
    const Launch_plan found = plan(DLT, vm_java);
    EXPECT_EQ(found.daemons.at(0).argv, (Lines{"/usr/bin/dlt-daemon", "-c", "/etc/dlt_ara_java_vm.conf"}));
    EXPECT_THAT(found.notes.at(0), HasSubstr("activated by the marker file"));
    // Without the attribute the launcher says so, as it would on the partition.
    std::filesystem::remove(root + "/sys/devices/virtual/tty/hvc1/quiet");
    EXPECT_THAT(plan(DLT, vm_java).console, testing::Contains("DLT_Launcher: Cannot read virtual console file at stop"));
}

// The watchdog is looked at, never opened; PHM is stopped by SIGTERM and probed with 0.
TEST_F(Plan_test, Phm_WatchdogPresentOrNot_StoppedWithoutKill)
{
    EXPECT_EQ(plan(PHM, vm_adaptive).daemons.at(0).argv,
              (Lines{"/usr/bin/quor_phmd", "--autostart", "--dummy_watchdog"}));
    add("/dev/watchdog");
    const Launch_plan made = plan(PHM, vm_adaptive);
    EXPECT_EQ(made.daemons.at(0).argv, (Lines{"/usr/bin/quor_phmd", "--autostart"}));
    EXPECT_TRUE(made.daemons[0].readiness_awaited);
    EXPECT_EQ(made.daemons[0].stop.kill, "never");
    ASSERT_EQ(made.stop_signals.size(), 2U);
    EXPECT_EQ((std::vector<int>{made.stop_signals[0].signal, made.stop_signals[1].signal}), (std::vector<int>{15, 0}));
    EXPECT_TRUE(made.stop_signals[0].delivered);
    EXPECT_FALSE(made.stop_signals[1].delivered);
}

// Configuration by partition, the failed prepare and the housekeeping partition's nothing.
TEST_F(Plan_test, Udpnm_ConfigurationByPartition_FailureAndHousekeeping)
{
    add(adaptive + "/ara_UdpNm/quor_udpnm_vosk1_sys02.json");
    EXPECT_EQ(plan(UDPNM, vm_java).daemons.at(0).argv,
              (Lines{"/usr/bin/quor_udpnmd", "-c", adaptive + "/ara_UdpNm/quor_udpnm_vosk1_sys02.json"}));
    const Launch_plan failed = plan(UDPNM, vm_adaptive);
    EXPECT_FALSE(failed.prepared);
    EXPECT_TRUE(failed.daemons.empty());
    add(adaptive + "/ara_UdpNm/quor_udpnm.json");
    const Launch_plan housekeeping = plan(UDPNM, vm_housekeeping);
    EXPECT_TRUE(housekeeping.started);
    EXPECT_TRUE(housekeeping.daemons.empty());
    EXPECT_THAT(housekeeping.console, testing::Contains(HasSubstr("Not starting UdpNM daemon on HK partition")));
}

// The emulator's address comes from the address table below the root, global scope only.
TEST_F(Plan_test, EmulatorBridge_AddressFromTheTable)
{
    add("/proc/net/if_inet6", "fe80000000000000000000000000000a 03 40 20 80 netns0\n"
                              "fd005354524100000000000000000003 03 40 00 80 netns0\n");
    const Launch_plan made = plan(COM_BRIDGE, qemu_arm64);
    EXPECT_EQ(made.strategy, "Launcher_strategy_COM_simple");
    EXPECT_THAT(Plan_printer::quoted(made.daemons.at(0).argv), HasSubstr("-i fd00:5354:5241::3 -n netns0 "));
    EXPECT_EQ(plan(COM, qemu_arm64).daemons.at(0).readiness_limit_seconds, 15U);
}

TEST(Proc_address_source_test, Lines_AddressShorteningAndScope)
{
    const std::tuple<std::string, std::string, std::uint32_t> cases[] = {
        {"00000000000000000000000000000001 01 80 10 80 lo", "::1", 0},
        {"fe80000000000000021122fffe334455 1a 40 20 80 eth0", "fe80::211:22ff:fe33:4455", 26},
        {"fd4e91a205c000030000000000080010 02 40 00 80 eth0.3", "fd4e:91a2:5c0:3::8:10", 0},
        {"20010db8000000010000000100000001 02 40 00 80 eth1", "2001:db8:0:1:0:1:0:1", 0}};
    for (const auto& [line, text, scope] : cases) {
        Interface_address address;
        ASSERT_TRUE(Proc_address_source::parse_line(line, address)) << line;
        EXPECT_EQ(address.address, text);
        EXPECT_EQ(address.scope_id, scope);
    }
    Interface_address address;
    EXPECT_FALSE(Proc_address_source::parse_line("0000 01 80 10 80 lo", address));
    EXPECT_FALSE(Proc_address_source::parse_line("", address));
}

// The recording system: what acts is answered, never done; a pid lives until its first
// real signal; pids that are not positive are refused as the real seam refuses them.
TEST(Recording_system_call_api_test, Children_Signals_Sockets)
{
    System_call_api system;
    Launch_plan made;
    Recording_system_call_api api(system, "/nonexistent", made);
    EXPECT_EQ(api.kill(-1, SIGTERM), -1);
    EXPECT_EQ(errno, EINVAL);
    const pid_t pid = api.fork();
    EXPECT_EQ(pid, Recording_system_call_api::first_pid);
    EXPECT_EQ(api.kill(pid, 0), 0);
    EXPECT_EQ(api.waitpid(pid, nullptr, 0), -1);
    EXPECT_EQ(api.kill(pid, SIGTERM), 0);
    int status = 0;
    EXPECT_EQ(api.waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, SIGTERM);
    EXPECT_EQ(api.kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);

    const int descriptor = api.socket(AF_UNIX, SOCK_DGRAM, 0);
    EXPECT_GE(descriptor, Recording_system_call_api::first_descriptor);
    char buffer[16] = {};
    iovec part{buffer, sizeof(buffer)};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    EXPECT_EQ(api.recvmsg(descriptor, &message, 0), -1);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/run/x");
    EXPECT_EQ(api.bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    EXPECT_EQ(api.recvmsg(descriptor, &message, 0), 7);
    EXPECT_EQ(std::string(buffer), "READY=1");
    EXPECT_EQ(api.recvmsg(descriptor, &message, 0), -1);
    EXPECT_EQ(made.bound_sockets, (Lines{"/run/x"}));

    EXPECT_EQ(api.open("/etc/passwd", O_RDONLY), -1);  // below the root, which does not exist
    EXPECT_GE(api.open("/etc/x", O_WRONLY | O_CREAT), Recording_system_call_api::first_descriptor);
    EXPECT_EQ(made.written_files, (Lines{"/etc/x"}));
    EXPECT_EQ(api.get_quiet_file_path(), "");
    EXPECT_EQ(api.close(2), -1);
}

TEST(Plan_options_test, CommandLines)
{
    Plan_options options;
    std::string error;
    ASSERT_TRUE(Plan_options::parse({"99", "--hostname", "vm_java", "--root", "/r", "--json", "--check"}, options,
                                    error));
    EXPECT_EQ(std::make_tuple(options.kind, options.hostname, options.root, options.json, options.check),
              std::make_tuple(std::string("99"), std::string("vm_java"), std::string("/r"), true, true));
    for (const Lines& words : {Lines{}, Lines{"--json"}, Lines{"0", "1"}, Lines{"0", "--root"}, Lines{"0", "--x"}}) {
        Plan_options ignored;
        EXPECT_FALSE(Plan_options::parse(words, ignored, error)) << words.size();
    }
}

// The check the unit runs before the launcher: one line, and the launcher's reading of the kind.
TEST(Plan_check_test, KindAndHostName)
{
    System_call_api system;
    Launch_plan made;
    Recording_system_call_api api(system, "", made);
    const std::tuple<std::string, std::string, bool, std::string> cases[] = {
        {"355", "vm_java", true, ""},
        {"7", "vm_java", false, "strata-launcher-plan: no launcher kind \"7\" (0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE)\n"},
        {"0", "vm_java.local", false, "Launcher configuration: Unknown partition. hostname = vm_java.local\n"},
        {"0", "", false, "Cannot detect hostname of the partition.\n"}};
    for (const auto& [kind, host, valid, line] : cases) {
        api.set_hostname(host);
        Launcher_configuration configuration;
        testing::internal::CaptureStderr();
        EXPECT_EQ(check_configuration(kind, api, configuration), valid) << kind << host;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), line);
    }
}

TEST(Plan_printer_test, QuotingAndJson)
{
    EXPECT_EQ(Plan_printer::quoted({"a", "NOTIFY_SOCKET= ", "", "it's"}), "a 'NOTIFY_SOCKET= ' '' 'it'\\''s'");
    Launch_plan made;
    made.kind = COM_BRIDGE;
    made.daemons.push_back(Planned_daemon{1001, "/usr/bin/x", {"/usr/bin/x"}, {"A=b"}, " ", false, 0, {}});
    const nlohmann::json document = nlohmann::json::parse(Plan_printer::json(made));
    EXPECT_EQ(document["kind"], 99);
    EXPECT_EQ(document["daemons"][0]["readiness"]["socket"], " ");
    EXPECT_EQ(document["daemons"][0]["envp"], nlohmann::json::array({"A=b"}));
    std::ostringstream text;
    Plan_printer::print_text(made, text);
    EXPECT_THAT(text.str(), HasSubstr("daemon 1 (planned pid 1001): /usr/bin/x\n  argv: /usr/bin/x\n"));
}

}  // namespace

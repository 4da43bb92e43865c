#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_daemon.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/test/fake_directory_reader.hpp"
#include "strategies/test/fake_interface_address_source.hpp"
#include "strategies/test/fake_system_call_api.hpp"

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Sent = Fake_system_call_api::Signal_sent;

namespace {

const std::string path_entry{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"};
const std::string manifests{"/data/target/etc/adaptive/ara_COM/comManifest/"};
const std::string infotainment{"/data/target/etc/adaptive/ara_COM/comManifests_HK/VLAN_INFOTAINMENT/"};
const std::string connect{"/data/target/etc/adaptive/ara_COM/comManifests_HK/VLAN_CONNECT/"};
const std::vector<std::string> security_options{
    "--iam_shared_lib", "/usr/lib/libvosk1_iam.so.1",
    "--tls_shared_lib", "/usr/lib/libtls_manager_botan.so.1",
    "--tls_manifest",   "/etc/adaptive/ara_COM/com_conf/tls_manager_customer_configuration.json"};

std::vector<std::string> base_command_line(const std::string& address, const std::string& interface_name)
{
    return {"/usr/bin/com_daemon",
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
            "info"};
}

std::vector<std::string> concat(std::vector<std::string> first, const std::vector<std::string>& second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

void expect_none_on_standard_error(const std::string& errors, std::initializer_list<const char*> texts)
{
    for (const char* text : texts) {
        EXPECT_THAT(errors, Not(HasSubstr(text)));
    }
}

template <typename Strategy>
class Com_strategy_test : public testing::Test {
protected:
    void TearDown() override
    {
        api.end_all_children();
        strategy.reset();
    }

    void with_libraries() { reader.add_directory("/usr/lib/", {"libvosk1_iam.so.1", "libtls_manager_botan.so.1"}); }

    Fake_system_call_api api;
    Fake_directory_reader reader;
    std::unique_ptr<Strategy> strategy;
};

// ---------------------------------------------------------------- COM simple

class ComSimple : public Com_strategy_test<Launcher_strategy_COM_simple> {
protected:
    void make(std::uint8_t partition)
    {
        strategy = std::make_unique<Launcher_strategy_COM_simple>(partition);
        strategy->set_directory_reader(&reader);
        strategy->set_address_source(&addresses);
    }

    Fake_interface_address_source addresses;
};

TEST_F(ComSimple, VmAdaptive_ChildGetsFullCommandLineWithManifestsInDirectoryOrder)
{
    with_libraries();
    reader.add_directory(manifests, {"b.json", ".", "a.json", "..", "notes.txt", "a.json.bak"});
    make(vm_adaptive);
    api.fork_as_child(1);

    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_TRUE(strategy->start());

    ASSERT_EQ(api.execs().size(), 1U);
    const auto exec = api.execs().front();
    EXPECT_EQ(exec.path, "/usr/bin/com_daemon");
    EXPECT_EQ(exec.argv,
              concat(concat(base_command_line("fd4e:91a2:5c0:3::106", "eth0.3"), security_options),
                     {"-m", manifests + "b.json", "-m", manifests + "a.json", "-m", manifests + "a.json.bak"}));
    EXPECT_THAT(exec.envp, ElementsAre(path_entry, "NOTIFY_SOCKET= ", "APP_INSTANCE_ID=com-daemon-1-container"));
    EXPECT_THAT(api.bound_paths(), IsEmpty());
}

TEST_F(ComSimple, VmJava_MissingLibrariesAndManifestsDropOptionsAndUseDummyManifest)
{
    make(vm_java);
    api.fork_as_child(1);
    testing::internal::CaptureStderr();

    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(strategy->start());

    EXPECT_THAT(errors, AllOf(HasSubstr("library /usr/lib//libvosk1_iam.so.1 not exists!\n"),
                              HasSubstr("Not adding --iam_shared_lib!\n"),
                              HasSubstr("Not adding --tls_shared_lib and --tls_manifest!\n"),
                              HasSubstr("Launcher read from directory = " + manifests + " failed \n")));
    ASSERT_EQ(api.execs().size(), 1U);
    EXPECT_EQ(api.execs().front().argv,
              concat(base_command_line("fd4e:91a2:5c0:4::107", "eth0.4"), {"-m", "/etc/adaptive/someip_dummy.json"}));
}

TEST_F(ComSimple, Qemu_FirstGlobalAddressOnNetns0WinsAndNoSecurityOptions)
{
    with_libraries();
    reader.add_directory(manifests, {"notes.txt"});
    addresses.entries = {{"lo", "::1", 0},
                         {"netns0", "fe80::1", 3},
                         {"eth1", "fd00::9", 0},
                         {"netns0", "fd00::5", 0},
                         {"netns0", "fd00::6", 0}};
    make(qemu_arm64);
    api.fork_as_child(1);
    testing::internal::CaptureStderr();

    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(strategy->start());

    EXPECT_THAT(errors, Not(HasSubstr("Not adding")));
    ASSERT_EQ(api.execs().size(), 1U);
    EXPECT_EQ(api.execs().front().argv,
              concat(base_command_line("fd00::5", "netns0"), {"-m", "/etc/adaptive/someip_dummy.json"}));
}

TEST_F(ComSimple, Qemu_OnlyLinkLocalAddressPreparesButDoesNotStart)
{
    addresses.entries = {{"netns0", "fe80::1", 2}};
    make(qemu_arm64);

    EXPECT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_FALSE(strategy->start());
    EXPECT_EQ(api.fork_count(), 0);
}

TEST_F(ComSimple, PrepareFails_WithoutAddressListUnknownPartitionOrApi)
{
    addresses.fails = true;
    make(qemu_arm64);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->prepare(&api, nullptr));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot get network interface of qemu.\n");

    make(vm_housekeeping);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(strategy->prepare(&api, nullptr));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown partition. Terminating.\n");

    make(vm_adaptive);
    EXPECT_FALSE(strategy->prepare(nullptr, nullptr));
}

TEST_F(ComSimple, ForkFailure_StartStillSucceedsAndStopSignalsNobody)
{
    make(vm_adaptive);
    api.fail_fork(1);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));

    EXPECT_TRUE(strategy->start());
    strategy->stop();

    EXPECT_THAT(api.signals(), IsEmpty());
}

TEST_F(ComSimple, Stop_ChildIgnoringTerminationIsKilledByFirstPoll)
{
    make(vm_adaptive);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    ASSERT_TRUE(strategy->start());
    const pid_t child = api.forked_pids().at(0);
    api.ignore_termination(child);

    strategy->stop();

    const auto sent = api.signals_to(child);
    ASSERT_GE(sent.size(), 3U);
    EXPECT_EQ(sent[0], (Sent{child, SIGTERM}));
    EXPECT_EQ(sent[1], (Sent{child, SIGKILL}));
    EXPECT_FALSE(api.alive(child));
    EXPECT_FALSE(strategy->get_daemon_handler() == nullptr);
}

TEST_F(ComSimple, WholePass_ProgressTextsStayOffStandardError)
{
    with_libraries();
    reader.add_directory(manifests, {"a.json"});
    make(vm_adaptive);
    testing::internal::CaptureStderr();

    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    ASSERT_TRUE(strategy->start());
    api.ignore_termination(api.forked_pids().at(0));
    strategy->stop();
    strategy.reset();

    expect_none_on_standard_error(testing::internal::GetCapturedStderr(),
                                  {"Launcher_strategy_COM_simple", "library ", "[LS_COM]", "create process /usr",
                                   "Start com_daemon PID= ", "Child still runinng...", "[LS_COM_S]"});
}

// ---------------------------------------------------------------- COM daemon

class ComDaemon : public Com_strategy_test<Launcher_strategy_COM_daemon> {
protected:
    void make(std::uint8_t partition)
    {
        strategy = std::make_unique<Launcher_strategy_COM_daemon>(partition);
        strategy->set_directory_reader(&reader);
    }
};

TEST_F(ComDaemon, ManagementCommandLineOwnSocketAndReadiness)
{
    with_libraries();
    reader.add_directory(manifests, {"a.json"});
    make(vm_housekeeping);
    api.set_datagram("READY=1");
    api.fork_as_child(1);

    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_TRUE(strategy->start());

    EXPECT_THAT(api.bound_paths(), ElementsAre("/var/run/adaptive/ara_Com/com_management_daemon"));
    ASSERT_EQ(api.execs().size(), 1U);
    EXPECT_THAT(api.execs().front().argv,
                ElementsAre("/usr/bin/com_daemon", "-d", "-e", "/var/run/adaptive/ara_Com/ara_com_sm", "-g",
                            "/var/run/adaptive/ara_Com/ara_com_gw_1_", "--log_mode", "remote", "--log_level", "info"));
    EXPECT_THAT(api.execs().front().envp,
                ElementsAre(path_entry, "NOTIFY_SOCKET=/var/run/adaptive/ara_Com/com_management_daemon",
                            "APP_INSTANCE_ID=com-daemon-1-container"));
    EXPECT_THAT(reader.reads, IsEmpty());
}

TEST_F(ComDaemon, UnbindableSocketFailsPrepare)
{
    make(vm_adaptive);
    api.fail_bind();
    testing::internal::CaptureStderr();

    EXPECT_FALSE(strategy->prepare(&api, nullptr));

    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("[LS_COM_S]: init_socket_for_notify failed\n"));
}

TEST_F(ComDaemon, ReadyChildIsStoppedWithTerminationThenKillProbes)
{
    make(vm_java);
    api.set_datagram("STATUS=up\nREADY=1\n");
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    ASSERT_TRUE(strategy->start());
    const pid_t child = api.forked_pids().at(0);

    strategy->stop();

    const auto sent = api.signals_to(child);
    ASSERT_GE(sent.size(), 2U);
    EXPECT_EQ(sent[0], (Sent{child, SIGTERM}));
    for (std::size_t i = 1; i < sent.size(); ++i) {
        EXPECT_EQ(sent[i].signal, SIGKILL);
    }
    EXPECT_FALSE(api.alive(child));
}

TEST_F(ComDaemon, WholePass_ProgressTextsStayOffStandardError)
{
    make(vm_adaptive);
    api.set_datagram("READY=1");
    testing::internal::CaptureStderr();

    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    ASSERT_TRUE(strategy->start());
    strategy->stop();
    strategy.reset();

    expect_none_on_standard_error(testing::internal::GetCapturedStderr(),
                                  {"Launcher_strategy_COM_daemon", "create process /usr",
                                   "Start com_daemon PID= ", "Child still runinng...", "[LS_COM_S]"});
}

// ---------------------------------------------------------------- COM complex

class ComComplex : public Com_strategy_test<Launcher_strategy_COM_complex> {
protected:
    void SetUp() override
    {
        strategy = std::make_unique<Launcher_strategy_COM_complex>();
        strategy->set_directory_reader(&reader);
    }

    void start_both()
    {
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        ASSERT_TRUE(strategy->start());
        ASSERT_EQ(api.forked_pids().size(), 2U);
        vlan0 = api.forked_pids()[0];
        vlan1 = api.forked_pids()[1];
    }

    pid_t vlan0{-1};
    pid_t vlan1{-1};
};

TEST_F(ComComplex, EachVlanGetsItsAddressManifestsAndEnvironment)
{
    with_libraries();
    reader.add_directory(infotainment, {"info.json"});
    reader.add_directory(connect, {"c2.json", "c1.json"});
    api.fork_as_child(2);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_FALSE(strategy->start());  // the second fork went the child's way
    api.end_all_children();

    Fake_system_call_api first_child_api;
    auto other = std::make_unique<Launcher_strategy_COM_complex>();
    other->set_directory_reader(&reader);
    first_child_api.fork_as_child(1);
    ASSERT_TRUE(other->prepare(&first_child_api, nullptr));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(other->start());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("[LS_COM_C]: com_vlan0_daemon cannot fork\n"));
    EXPECT_EQ(first_child_api.fork_count(), 1);

    ASSERT_EQ(first_child_api.execs().size(), 1U);
    const auto vlan0_exec = first_child_api.execs().front();
    EXPECT_EQ(vlan0_exec.argv, concat(concat(base_command_line("fd4e:91a2:5c0:3::8:10", "eth0.3"), security_options),
                                      {"-m", infotainment + "info.json"}));
    EXPECT_THAT(vlan0_exec.envp, ElementsAre(path_entry, "NOTIFY_SOCKET= ", "APP_INSTANCE_ID=com-daemon-1-container"));

    ASSERT_EQ(api.execs().size(), 1U);
    const auto vlan1_exec = api.execs().front();
    EXPECT_EQ(vlan1_exec.argv, concat(concat(base_command_line("fd4e:91a2:5c0:4::8:10", "eth0.4"), security_options),
                                      {"-m", connect + "c2.json", "-m", connect + "c1.json"}));
    EXPECT_THAT(vlan1_exec.envp, ElementsAre(path_entry, "APP_INSTANCE_ID=com-daemon-1-container"));
    EXPECT_THAT(api.bound_paths(), IsEmpty());
    other.reset();
}

TEST_F(ComComplex, StartWithoutPrepareReportsAndFails)
{
    EXPECT_FALSE(strategy->start());
    EXPECT_EQ(api.fork_count(), 0);
}

TEST_F(ComComplex, SecondForkFailureFailsStart)
{
    api.fail_fork(2);
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    testing::internal::CaptureStderr();

    EXPECT_FALSE(strategy->start());

    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("[LS_COM_C]: SOME/IP daemon vlan0/1 can't be started\n"));
}

TEST_F(ComComplex, Stop_ChildrenEndingOnTerminationGetNoKill)
{
    start_both();
    testing::internal::CaptureStderr();

    strategy->stop();

    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_THAT(api.signals(), ElementsAre(Sent{vlan0, SIGTERM}, Sent{vlan1, SIGTERM}));
    EXPECT_THAT(errors, AllOf(Not(HasSubstr("Time out")), Not(HasSubstr("Sending Kill"))));
}

TEST_F(ComComplex, Stop_Vlan1IgnoringTerminationIsKilledAfterTwoSeconds)
{
    start_both();
    api.ignore_termination(vlan1);
    testing::internal::CaptureStderr();
    const auto begin = std::chrono::steady_clock::now();

    strategy->stop();

    const auto elapsed = std::chrono::steady_clock::now() - begin;
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_GE(elapsed, std::chrono::milliseconds(2000));  // 20 full sleeps
    EXPECT_LT(elapsed, std::chrono::milliseconds(3500));
    EXPECT_THAT(api.signals(), ElementsAre(Sent{vlan0, SIGTERM}, Sent{vlan1, SIGTERM}, Sent{vlan1, SIGKILL}));
    EXPECT_THAT(errors, AllOf(HasSubstr("[LS_COM_C]: Time out, but child still running...\n"),
                              HasSubstr("[LS_COM_C]: Sending Kill signal to com_vlan1_daemon...\n"),
                              Not(HasSubstr("com_vlan0_daemon..."))));
    EXPECT_FALSE(api.alive(vlan1));
}

TEST_F(ComComplex, WholePass_ProgressTextsStayOffStandardError)
{
    with_libraries();
    testing::internal::CaptureStderr();

    start_both();
    strategy->stop();
    strategy.reset();

    expect_none_on_standard_error(
        testing::internal::GetCapturedStderr(),
        {"[LS_COM_C]: preparing", "[LS_COM_C]: COM daemon preparation done", "[LS_COM_C]: Stopping",
         "[LS_COM_C]: All com_daemon", "[LS_COM_C]: destructor", "[LS_COM]: did not any manifest"});
}

}  // namespace

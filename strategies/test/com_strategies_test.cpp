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

// Each security library is looked for on its own; a missing manifest directory falls back
// to the dummy manifest.
TEST_F(ComSimple, VmJava_SecurityOptionsFollowEachLibraryAndMissingManifestsUseTheDummy)
{
    const std::vector<std::string> iam{security_options.begin(), security_options.begin() + 2};
    const std::vector<std::string> tls{security_options.begin() + 2, security_options.end()};
    struct Case {
        std::vector<std::string> libraries;
        std::vector<std::string> options;
        std::vector<const char*> errors;
    };
    const std::vector<Case> cases{
        {{}, {}, {"library /usr/lib//libvosk1_iam.so.1 not exists!\n", "Not adding --iam_shared_lib!\n",
                  "Not adding --tls_shared_lib and --tls_manifest!\n"}},
        {{"libvosk1_iam.so.1"}, iam, {"Not adding --tls_shared_lib and --tls_manifest!\n"}},
        {{"libtls_manager_botan.so.1.2"}, tls, {"Not adding --iam_shared_lib!\n"}},
    };
    int fork_number = 0;
    for (const Case& c : cases) {
        reader = Fake_directory_reader();
        reader.add_directory("/usr/lib/", c.libraries);
        make(vm_java);
        api.fork_as_child(++fork_number);
        testing::internal::CaptureStderr();
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(strategy->start());
        for (const char* error : c.errors) {
            EXPECT_THAT(errors, HasSubstr(error));
        }
        EXPECT_THAT(errors, HasSubstr("Launcher read from directory = " + manifests + " failed \n"));
        EXPECT_EQ(api.execs().back().argv, concat(concat(base_command_line("fd4e:91a2:5c0:4::107", "eth0.4"), c.options),
                                                  {"-m", "/etc/adaptive/someip_dummy.json"}));
    }
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

// ---------------------------------------------------------------- COM daemon

class ComDaemon : public Com_strategy_test<Launcher_strategy_COM_daemon> {
protected:
    void make(std::uint8_t partition)
    {
        strategy = std::make_unique<Launcher_strategy_COM_daemon>(partition);
        strategy->set_directory_reader(&reader);
    }
};

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

// A failure at VLAN 0 does not start VLAN 1.
TEST_F(ComComplex, ForkFailuresFailStartWithTheirTexts)
{
    struct Case {
        int failing_fork;
        const char* text;
        int forks;
    };
    int forks_before = 0;
    for (const Case& c : {Case{1, "[LS_COM_C]: com_vlan0_daemon cannot fork\n", 1},
                          Case{2, "[LS_COM_C]: SOME/IP daemon vlan0/1 can't be started\n", 2}}) {
        SetUp();
        api.fail_fork(forks_before + c.failing_fork);
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        testing::internal::CaptureStderr();
        EXPECT_FALSE(strategy->start());
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(c.text));
        EXPECT_EQ(api.fork_count() - forks_before, c.forks);
        forks_before = api.fork_count();
        api.end_all_children();
    }
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

// A termination that cannot be delivered counts as not done: the kill follows, without a wait.
TEST_F(ComComplex, Stop_Vlan0ChildAlreadyGoneIsStillSentTheKill)
{
    start_both();
    api.end_child(vlan0);
    testing::internal::CaptureStderr();

    strategy->stop();

    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_THAT(api.signals(), ElementsAre(Sent{vlan0, SIGTERM}, Sent{vlan1, SIGTERM}, Sent{vlan0, SIGKILL}));
    EXPECT_THAT(errors, AllOf(HasSubstr("[LS_COM_C]: Sending Kill signal to com_vlan0_daemon...\n"),
                              Not(HasSubstr("Time out")), Not(HasSubstr("com_vlan1_daemon"))));
}

}  // namespace

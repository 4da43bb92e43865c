#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/test/strategy_system.hpp"

using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Return;
using Lines = std::vector<std::string>;

namespace {

const std::string manifests{"/data/target/etc/adaptive/ara_COM/comManifest/"};
const Lines iam{"--iam_shared_lib", "/usr/lib/libvosk1_iam.so.1"};
const Lines tls{"--tls_shared_lib", "/usr/lib/libtls_manager_botan.so.1", "--tls_manifest",
                "/etc/adaptive/ara_COM/com_conf/tls_manager_customer_configuration.json"};
const Lines dummy{"-m", "/etc/adaptive/someip_dummy.json"};

Lines command_line(const std::string& address, const std::string& interface_name, const Lines& security,
                   const Lines& manifest_options)
{
    Lines line{"/usr/bin/com_daemon", "-c", "255", "-i", address, "-n", interface_name, "-e",
               "/var/run/adaptive/ara_Com/ara_com_sm", "--log_mode", "remote", "--log_level", "info"};
    line.insert(line.end(), security.begin(), security.end());
    line.insert(line.end(), manifest_options.begin(), manifest_options.end());
    return line;
}

struct Addresses : Interface_address_source_interface {
    bool read_ipv6_addresses(std::vector<Interface_address>& found) override
    {
        found = entries;
        return !fails;
    }
    std::vector<Interface_address> entries;
    bool fails{false};
};

class ComSimple : public testing::Test {
protected:
    // Prepares and starts on the child's side of fork; returns prepare's stderr.
    std::string run(std::uint8_t partition)
    {
        api.fork_results = {0};
        Launcher_strategy_COM_simple strategy(partition);
        strategy.set_directory_reader(&reader);
        strategy.set_address_source(&addresses);
        testing::internal::CaptureStderr();
        EXPECT_TRUE(strategy.prepare(&api, nullptr));
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(strategy.start());
        return errors;
    }

    Strategy_system api;
    Fake_directory_reader reader;
    Addresses addresses;
};

TEST_F(ComSimple, VmAdaptive_FullCommandLineWithManifestsInDirectoryOrder)
{
    reader.directories["/usr/lib/"] = {"libvosk1_iam.so.1", "libtls_manager_botan.so.1"};
    reader.directories[manifests] = {"b.json", ".", "a.json", "notes.txt", "a.json.bak"};
    EXPECT_CALL(api, bind(_, _, _)).Times(0);
    (void)run(vm_adaptive);
    ASSERT_EQ(api.execs.size(), 1U);
    EXPECT_EQ(api.execs[0].path, "/usr/bin/com_daemon");
    Lines security = iam;
    security.insert(security.end(), tls.begin(), tls.end());
    EXPECT_EQ(api.execs[0].argv,
              command_line("fd4e:91a2:5c0:3::106", "eth0.3", security,
                           {"-m", manifests + "b.json", "-m", manifests + "a.json", "-m", manifests + "a.json.bak"}));
    EXPECT_THAT(api.execs[0].envp,
                ElementsAre("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", "NOTIFY_SOCKET= ",
                            "APP_INSTANCE_ID=com-daemon-1-container"));
}

// Each security library is looked for on its own; without manifests the dummy one is used.
TEST_F(ComSimple, VmJava_EachSecurityLibraryOnItsOwn)
{
    const std::pair<Lines, Lines> cases[] = {{{}, {}}, {{"libvosk1_iam.so.1"}, iam}, {{"libtls_manager_botan.so.1.2"}, tls}};
    for (const auto& [libraries, options] : cases) {
        reader.directories["/usr/lib/"] = libraries;
        const std::string errors = run(vm_java);
        EXPECT_EQ(errors.find("Not adding --iam_shared_lib!\n") == std::string::npos, options == iam);
        EXPECT_EQ(errors.find("Not adding --tls_shared_lib and --tls_manifest!\n") == std::string::npos, options == tls);
        EXPECT_THAT(errors, HasSubstr("Launcher read from directory = " + manifests + " failed \n"));
        EXPECT_EQ(api.execs.back().argv, command_line("fd4e:91a2:5c0:4::107", "eth0.4", options, dummy));
    }
    EXPECT_THAT(run(vm_java), HasSubstr("library /usr/lib//libvosk1_iam.so.1 not exists!\n"));
}

TEST_F(ComSimple, Qemu_FirstGlobalAddressOnNetns0WinsAndNoSecurityOptions)
{
    reader.directories["/usr/lib/"] = {"libvosk1_iam.so.1", "libtls_manager_botan.so.1"};
    addresses.entries = {{"netns0", "fe80::1", 3}, {"eth1", "fd00::9", 0}, {"netns0", "fd00::5", 0}, {"netns0", "fd00::6", 0}};
    EXPECT_THAT(run(qemu_arm64), Not(HasSubstr("Not adding")));
    EXPECT_EQ(api.execs.at(0).argv, command_line("fd00::5", "netns0", {}, dummy));

    addresses.entries = {{"netns0", "fe80::1", 2}};
    Launcher_strategy_COM_simple link_local_only(qemu_arm64);
    link_local_only.set_address_source(&addresses);
    link_local_only.set_directory_reader(&reader);
    EXPECT_TRUE(link_local_only.prepare(&api, nullptr));
    EXPECT_FALSE(link_local_only.start());
    EXPECT_EQ(api.execs.size(), 1U);
}

TEST_F(ComSimple, PrepareFails_WithoutAddressListUnknownPartitionOrApi)
{
    addresses.fails = true;
    const std::pair<std::uint8_t, const char*> cases[] = {{qemu_arm64, "Cannot get network interface of qemu.\n"},
                                                          {vm_housekeeping, "Unknown partition. Terminating.\n"}};
    for (const auto& [partition, text] : cases) {
        Launcher_strategy_COM_simple strategy(partition);
        strategy.set_address_source(&addresses);
        testing::internal::CaptureStderr();
        EXPECT_FALSE(strategy.prepare(&api, nullptr));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), text);
    }
    EXPECT_FALSE(Launcher_strategy_COM_simple(vm_adaptive).prepare(nullptr, nullptr));
}

// A termination that cannot be delivered counts as not done: the kill follows at once.
TEST(ComComplex, Stop_KillsOnlyAChildTheTerminationDidNotReach)
{
    for (const bool vlan0_gone : {false, true}) {
        Strategy_system api;
        Fake_directory_reader reader;
        testing::InSequence order;
        EXPECT_CALL(api, kill(4101, SIGTERM)).WillOnce(Return(vlan0_gone ? -1 : 0));
        EXPECT_CALL(api, kill(4102, SIGTERM)).WillOnce(Return(0));
        EXPECT_CALL(api, kill(4101, SIGKILL)).Times(vlan0_gone ? 1 : 0);
        Launcher_strategy_COM_complex strategy;
        strategy.set_directory_reader(&reader);
        ASSERT_TRUE(strategy.prepare(&api, nullptr));
        ASSERT_TRUE(strategy.start());
        testing::internal::CaptureStderr();
        strategy.stop();
        const std::string errors = testing::internal::GetCapturedStderr();
        EXPECT_EQ(errors.find("[LS_COM_C]: Sending Kill signal to com_vlan0_daemon...\n") != std::string::npos,
                  vlan0_gone);
        EXPECT_THAT(errors, Not(testing::AnyOf(HasSubstr("Time out"), HasSubstr("com_vlan1_daemon"))));
    }
}

}  // namespace

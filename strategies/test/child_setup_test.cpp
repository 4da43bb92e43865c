#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

#include "strategies/child_setup.hpp"
#include "strategies/test/fake_directory_reader.hpp"
#include "strategies/test/fake_system_call_api.hpp"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

const child_setup::Config_search_texts texts{"DIR ", "CONFIG ", "ARGU "};

class ChildSetup : public testing::Test {
protected:
    Fake_directory_reader reader;
};

TEST_F(ChildSetup, DirectorySearch_KeepsDirectoryOrderAndMatchesSubstrings)
{
    reader.add_directory("/m/", {".", "zeta.json", "..", "alpha.json", "readme.txt", "a.json.bak"});
    std::vector<std::string> files;

    EXPECT_TRUE(child_setup::read_directory(reader, "/m/", ".json", files));

    EXPECT_THAT(files, ElementsAre("/m/zeta.json", "/m/alpha.json", "/m/a.json.bak"));
}

TEST_F(ChildSetup, DirectorySearch_DoesNotSkipDotEntries)
{
    reader.add_directory("/m/", {".", "..", "x"});
    std::vector<std::string> files;

    EXPECT_TRUE(child_setup::read_directory(reader, "/m/", ".", files));

    EXPECT_THAT(files, ElementsAre("/m/.", "/m/.."));
}

TEST_F(ChildSetup, DirectorySearch_ReportsUnreadableDirectory)
{
    std::vector<std::string> files;
    testing::internal::CaptureStderr();

    EXPECT_FALSE(child_setup::read_directory(reader, "/missing/", ".json", files));

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Launcher read from directory = /missing/ failed \n");
    EXPECT_THAT(files, IsEmpty());
}

TEST_F(ChildSetup, LibraryCheck_CountsLongerNamesAndReportsMissingWithDoubledSlash)
{
    reader.add_directory("/usr/lib/", {"libc.so.6", "libvosk1_iam.so.1.0"});
    testing::internal::CaptureStderr();

    EXPECT_TRUE(child_setup::library_exists(reader, "/usr/lib/", "libvosk1_iam.so.1"));
    EXPECT_FALSE(child_setup::library_exists(reader, "/usr/lib/", "libtls_manager_botan.so.1"));

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "library /usr/lib//libtls_manager_botan.so.1 not exists!\n");
}

TEST_F(ChildSetup, ConfigSearch_AppendsOptionAndJoinedPathWhenFound)
{
    reader.add_directory("/etc/", {"hosts", "dlt_ara_java_vm.conf"});
    std::vector<std::string> argv{"/usr/bin/x"};

    EXPECT_TRUE(child_setup::get_config_file(reader, texts, "/etc/", "dlt_ara_java_vm.conf", argv));

    EXPECT_THAT(argv, ElementsAre("/usr/bin/x", "-c", "/etc/dlt_ara_java_vm.conf"));
}

TEST_F(ChildSetup, ConfigSearch_ReportsMissingFileOrDirectoryAndLeavesArgvAlone)
{
    reader.add_directory("/etc/", {"hosts"});
    std::vector<std::string> argv{"/usr/bin/x"};
    testing::internal::CaptureStderr();

    EXPECT_FALSE(child_setup::get_config_file(reader, texts, "/etc/", "a.conf", argv));
    EXPECT_FALSE(child_setup::get_config_file(reader, texts, "/none/", "a.conf", argv));

    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "CONFIG /etc/a.conf is NOT available\n"
              "DIR /none/ doesn't exist \n"
              "CONFIG /none/a.conf is NOT available\n");
    EXPECT_THAT(argv, ElementsAre("/usr/bin/x"));
}

TEST(ChildEnvironment, HoldsPathNotifySocketAndInstanceInOrder)
{
    std::vector<std::string> envp;
    child_setup::append_environment(envp, " ", "com-daemon-1-container");
    EXPECT_THAT(envp, ElementsAre("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                  "NOTIFY_SOCKET= ", "APP_INSTANCE_ID=com-daemon-1-container"));

    envp.clear();
    child_setup::append_environment_without_notify(envp, "com-daemon-1-container");
    EXPECT_THAT(envp, ElementsAre("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin",
                                  "APP_INSTANCE_ID=com-daemon-1-container"));
}

TEST(StopLoop, ProbesUntilTheSignalFailsAndNeverSignalsNonPositivePids)
{
    Fake_system_call_api api;
    const pid_t child = api.fork();
    api.exit_after_probes(child, 2);

    child_setup::wait_while_signal_delivered(&api, child, 0, nullptr, "still");
    child_setup::wait_while_signal_delivered(&api, -1, SIGKILL, nullptr, "still");

    using Sent = Fake_system_call_api::Signal_sent;
    EXPECT_THAT(api.signals(),
                ElementsAre(Sent{child, 0}, Sent{child, 0}, Sent{child, 0}, Sent{child, 0}, Sent{-1, SIGKILL}));
    EXPECT_FALSE(api.alive(child));
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "strategies/child_setup.hpp"
#include "strategies/test/fake_directory_reader.hpp"

using testing::ElementsAre;

namespace {

class ChildSetup : public testing::Test {
protected:
    Fake_directory_reader reader;
};

TEST_F(ChildSetup, DirectorySearch_DoesNotSkipDotEntries)
{
    reader.add_directory("/m/", {".", "..", "x"});
    std::vector<std::string> files;

    EXPECT_TRUE(child_setup::read_directory(reader, "/m/", ".", files));

    EXPECT_THAT(files, ElementsAre("/m/.", "/m/.."));
}

TEST_F(ChildSetup, LibraryCheck_CountsLongerNamesAndReportsMissingWithDoubledSlash)
{
    reader.add_directory("/usr/lib/", {"libc.so.6", "libvosk1_iam.so.1.0"});
    testing::internal::CaptureStderr();

    EXPECT_TRUE(child_setup::library_exists(reader, "/usr/lib/", "libvosk1_iam.so.1"));
    EXPECT_FALSE(child_setup::library_exists(reader, "/usr/lib/", "libtls_manager_botan.so.1"));

    EXPECT_EQ(testing::internal::GetCapturedStderr(), "library /usr/lib//libtls_manager_botan.so.1 not exists!\n");
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "launcher/partition_detection.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

namespace {

TEST(DetectPartition, OnlyExactHostNamesSelectAPartition)
{
    const std::vector<std::pair<std::string, std::uint8_t>> cases{
        {"vm_adaptive", vm_adaptive},          {"vm_java", vm_java},
        {"vm_housekeeping", vm_housekeeping},  {"qemu-arm64", qemu_arm64},
        {"vm_java.local", partition_unknown},  {"VM_JAVA", partition_unknown},
        {"vm_java ", partition_unknown},       {"qemu_arm64", partition_unknown},
    };
    for (const auto& [hostname, expected] : cases) {
        std::uint8_t partition = 77;
        testing::internal::CaptureStderr();
        EXPECT_EQ(detect_partition(hostname, partition), expected != partition_unknown) << hostname;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  expected != partition_unknown ? "" : "Launcher configuration: Unknown partition. hostname = " +
                                                           hostname + "\n");
        EXPECT_EQ(partition, expected) << hostname;
    }
}

TEST(Configure, FailsWhenHostNameUnavailable)
{
    testing::NiceMock<Mock_system_call_api> api;
    EXPECT_CALL(api, get_hostname()).WillOnce(testing::Return(""));
    Launcher_configuration configuration;
    testing::internal::CaptureStderr();
    EXPECT_EQ(configure(configuration, PHM, api), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot detect hostname of the partition.\n");
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "launcher/partition_detection.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

namespace {

using testing::NiceMock;
using testing::Return;

TEST(DetectPartition, ExactHostNamesSelectTheirPartition)
{
    const std::vector<std::pair<std::string, std::uint8_t>> cases{
        {"vm_adaptive", vm_adaptive},
        {"vm_java", vm_java},
        {"vm_housekeeping", vm_housekeeping},
        {"qemu-arm64", qemu_arm64},
    };
    for (const auto& [hostname, expected] : cases) {
        std::uint8_t partition = 77;
        testing::internal::CaptureStderr();
        EXPECT_TRUE(detect_partition(hostname, partition)) << hostname;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(partition, expected) << hostname;
    }
}

TEST(DetectPartition, NearMissesAreUnknown)
{
    for (const std::string hostname :
         {"vm_java.local", "VM_JAVA", "vm_Adaptive", "vm_java ", " vm_java", "vm", "qemu_arm64", "qemu-arm64-2", ""}) {
        std::uint8_t partition = vm_adaptive;
        testing::internal::CaptureStderr();
        EXPECT_FALSE(detect_partition(hostname, partition)) << hostname;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Launcher configuration: Unknown partition. hostname = " + hostname + "\n");
        EXPECT_EQ(partition, partition_unknown);
    }
}

TEST(Configure, StoresTypeAndPartitionFromHostName)
{
    NiceMock<Mock_system_call_api> api;
    EXPECT_CALL(api, get_hostname()).WillOnce(Return("vm_housekeeping"));
    Launcher_configuration configuration;
    EXPECT_EQ(configure(configuration, COM_BRIDGE, api), 0);
    EXPECT_EQ(configuration.type, COM_BRIDGE);
    EXPECT_EQ(configuration.partition, vm_housekeeping);
}

TEST(Configure, FailsWhenHostNameUnavailable)
{
    NiceMock<Mock_system_call_api> api;
    EXPECT_CALL(api, get_hostname()).WillOnce(Return(""));
    Launcher_configuration configuration;
    testing::internal::CaptureStderr();
    EXPECT_EQ(configure(configuration, PHM, api), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot detect hostname of the partition.\n");
    EXPECT_EQ(configuration.type, PHM);
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_daemon.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"

namespace {

template <typename Expected>
bool creates(std::uint8_t type, std::uint8_t partition)
{
    std::unique_ptr<Launcher_strategy_interface> strategy(
        Launcher_strategy_interface::createLauncherStrategy(Launcher_configuration{type, partition}));
    return dynamic_cast<Expected*>(strategy.get()) != nullptr;
}

TEST(StrategyCreation, KindAndPartitionSelectTheStrategy)
{
    for (std::uint8_t partition : {vm_adaptive, vm_java, vm_housekeeping, qemu_arm64}) {
        EXPECT_TRUE(creates<Launcher_strategy_COM_daemon>(COM, partition));
        EXPECT_TRUE(creates<Launcher_strategy_DLT>(DLT, partition));
        EXPECT_TRUE(creates<Launcher_strategy_PHM>(PHM, partition));
        EXPECT_TRUE(creates<Launcher_strategy_UDPNM>(UDPNM, partition));
    }
    EXPECT_TRUE(creates<Launcher_strategy_COM_complex>(COM_BRIDGE, vm_housekeeping));
    EXPECT_TRUE(creates<Launcher_strategy_COM_simple>(COM_BRIDGE, vm_adaptive));
    EXPECT_TRUE(creates<Launcher_strategy_COM_simple>(COM_BRIDGE, vm_java));
    EXPECT_TRUE(creates<Launcher_strategy_COM_simple>(COM_BRIDGE, qemu_arm64));
}

TEST(StrategyCreation, KindWithoutStrategyIsReportedAndYieldsNull)
{
    for (std::uint8_t type : {4, 98, 100, 255}) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(Launcher_strategy_interface::createLauncherStrategy(Launcher_configuration{type, vm_adaptive}),
                  nullptr);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "Launcher_strategy_interface :: createLauncherStrategy : No valid Strategy = " +
                      std::to_string(type) + " found !!!!!!!\n");
    }
}

TEST(StrategyCreation, FreshStrategyHasNoHandlerAndStopsQuietly)
{
    std::unique_ptr<Launcher_strategy_interface> strategy(
        Launcher_strategy_interface::createLauncherStrategy(Launcher_configuration{COM, vm_adaptive}));
    ASSERT_NE(strategy, nullptr);
    EXPECT_EQ(strategy->get_daemon_handler(), nullptr);
    strategy->stop();
}

}  // namespace

#include <gtest/gtest.h>

#include <memory>

#include "strategies/launcher_strategy_interface.hpp"
#include "strategies/test/fake_system_call_api.hpp"

namespace {

// A pass may prepare its strategy again (a retried start); the records of the first
// preparation must go, or every retry of a supervisor that runs for months leaks them.
// The leak itself is for the leak checker of the sanitizer build to see; here the second
// preparation must at least come to the same verdict as the first.
TEST(StrategyPrepareTwice, SecondPreparationReplacesTheFirstOnesRecords)
{
    const Launcher_configuration every_strategy[] = {
        {COM, vm_adaptive},  {COM_BRIDGE, vm_adaptive}, {COM_BRIDGE, vm_housekeeping},
        {DLT, vm_adaptive},  {PHM, vm_java},            {UDPNM, vm_adaptive}};
    for (const Launcher_configuration& configuration : every_strategy) {
        Fake_system_call_api api;
        std::unique_ptr<Launcher_strategy_interface> strategy(
            Launcher_strategy_interface::createLauncherStrategy(configuration));
        ASSERT_NE(strategy, nullptr);
        testing::internal::CaptureStderr();
        const bool first = strategy->prepare(&api, nullptr);
        const bool second = strategy->prepare(&api, nullptr);
        (void)testing::internal::GetCapturedStderr();
        EXPECT_EQ(first, second) << "kind " << int{configuration.type};
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_interface.hpp"

#include <string>

#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_daemon.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"
#include "support/error_line.hpp"

Launcher_strategy_interface* Launcher_strategy_interface::createLauncherStrategy(
    const Launcher_configuration& configuration)
{
    switch (configuration.type) {
        case COM:
            return new Launcher_strategy_COM_daemon(configuration.partition);
        case DLT:
            return new Launcher_strategy_DLT(configuration.partition);
        case PHM:
            return new Launcher_strategy_PHM(configuration.partition);
        case UDPNM:
            return new Launcher_strategy_UDPNM(configuration.partition);
        case COM_BRIDGE:
            // Only the housekeeping partition sits on both vehicle networks.
            if (configuration.partition == vm_housekeeping) {
                return new Launcher_strategy_COM_complex();
            }
            return new Launcher_strategy_COM_simple(configuration.partition);
        default:
            write_error_line(
                std::string("Launcher_strategy_interface :: createLauncherStrategy : No valid Strategy = ") +
                std::to_string(configuration.type) + " found !!!!!!!");
            return nullptr;
    }
}

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_INTERFACE_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_INTERFACE_HPP

#include "common/launcher_types.hpp"
#include "process/daemon_handler_interface.hpp"
#include "process/system_call_api_interface.hpp"

class Launcher_interface;

// One way of launching a daemon kind on a partition. A new object serves each pass of
// the launcher's restart loop: prepare, start, stop, then it is deleted.
class Launcher_strategy_interface {
public:
    virtual ~Launcher_strategy_interface() = default;
    virtual bool prepare(System_call_api_interface* api, Launcher_interface* launcher) = 0;
    virtual bool start() = 0;
    virtual void stop() = 0;
    virtual Daemon_handler_interface* get_daemon_handler() = 0;

    // A new strategy for the configuration, owned by the caller; null for a kind
    // without a strategy.
    static Launcher_strategy_interface* createLauncherStrategy(const Launcher_configuration& configuration);
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_LAUNCHER_INTERFACE_HPP
#define STRATA_LAUNCHER_LAUNCHER_INTERFACE_HPP

class Launcher_strategy_interface;

// One pass of the restart loop: a strategy brought up and down, readiness reported.
class Launcher_interface {
public:
    using Signal_handler = void (*)(int);

    virtual ~Launcher_interface() = default;
    virtual bool prepare(Launcher_strategy_interface* strategy) = 0;
    virtual bool start() = 0;
    virtual void stop() = 0;
    virtual bool register_signals(Signal_handler handler) = 0;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_LAUNCHER_HPP
#define STRATA_LAUNCHER_LAUNCHER_HPP

#include "launcher/em_handler_interface.hpp"
#include "launcher/launcher_interface.hpp"
#include "process/system_call_api_interface.hpp"
#include "strategies/launcher_strategy_interface.hpp"

// Borrows all three collaborators: the restart loop owns the handler and the strategy,
// and the system call interface lives as long as the process.
class Launcher : public Launcher_interface {
public:
    Launcher(EM_handler_interface* em_handler, System_call_api_interface* system_call);
    ~Launcher() override;
    Launcher(const Launcher&) = delete;
    Launcher& operator=(const Launcher&) = delete;

    bool prepare(Launcher_strategy_interface* strategy) override;
    // Reports READY whatever the strategy's start returned; the loop decides what follows.
    bool start() override;
    // Only after a successful prepare.
    void stop() override;
    bool register_signals(Signal_handler handler) override;

private:
    EM_handler_interface* em_handler;
    System_call_api_interface* system_call;
    Launcher_strategy_interface* strategy{nullptr};
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_COMPLEX_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_COMPLEX_HPP

#include "strategies/launcher_strategy_com.hpp"

// Two communication daemons on the housekeeping partition, one per VLAN; stopped with a
// bounded wait and then SIGKILL.
class Launcher_strategy_COM_complex : public Launcher_strategy_COM {
public:
    Launcher_strategy_COM_complex() = default;
    ~Launcher_strategy_COM_complex() override;
    Launcher_strategy_COM_complex(const Launcher_strategy_COM_complex&) = delete;
    Launcher_strategy_COM_complex& operator=(const Launcher_strategy_COM_complex&) = delete;

    bool prepare(System_call_api_interface* api, Launcher_interface* launcher) override;
    bool start() override;
    void stop() override;
    Daemon_handler_interface* get_daemon_handler() override;

    // Termination checks, 100 ms apart: 2 s in all before SIGKILL.
    static constexpr int termination_checks = 21;

private:
    bool any_child_running() const;
    bool wait_for_children();
    void kill_if_needed(Daemon_process_info& record, bool terminated, const char* kill_text);

    System_call_api_interface* api{nullptr};
    Daemon_process_info* vlan0_record{nullptr};
    Daemon_process_info* vlan1_record{nullptr};
};

#endif

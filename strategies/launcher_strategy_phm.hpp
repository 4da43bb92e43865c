// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_PHM_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_PHM_HPP

#include <cstdint>

#include "strategies/daemon_process_info.hpp"
#include "strategies/launcher_strategy_interface.hpp"

// The health management daemon; on stop it is only asked to terminate, never killed, so
// that it can hand the watchdog over cleanly.
class Launcher_strategy_PHM : public Launcher_strategy_interface {
public:
    explicit Launcher_strategy_PHM(std::uint8_t partition);
    ~Launcher_strategy_PHM() override;
    Launcher_strategy_PHM(const Launcher_strategy_PHM&) = delete;
    Launcher_strategy_PHM& operator=(const Launcher_strategy_PHM&) = delete;

    bool prepare(System_call_api_interface* api, Launcher_interface* launcher) override;
    bool start() override;
    void stop() override;
    Daemon_handler_interface* get_daemon_handler() override;

    static constexpr std::uint64_t readiness_seconds = 3;

private:
    void add_watchdog_option();

    std::uint8_t partition;
    System_call_api_interface* api{nullptr};
    Daemon_process_info* main_record{nullptr};
};

#endif

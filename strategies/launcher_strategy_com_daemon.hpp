// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_DAEMON_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_DAEMON_HPP

#include <cstdint>

#include "strategies/launcher_strategy_com.hpp"

// The communication daemon in its management mode, awaited for up to 15 s.
class Launcher_strategy_COM_daemon : public Launcher_strategy_COM {
public:
    explicit Launcher_strategy_COM_daemon(std::uint8_t partition);
    ~Launcher_strategy_COM_daemon() override;
    Launcher_strategy_COM_daemon(const Launcher_strategy_COM_daemon&) = delete;
    Launcher_strategy_COM_daemon& operator=(const Launcher_strategy_COM_daemon&) = delete;

    bool prepare(System_call_api_interface* api, Launcher_interface* launcher) override;
    bool start() override;
    void stop() override;
    Daemon_handler_interface* get_daemon_handler() override;
    virtual bool prepare_system(System_call_api_interface* api);

    static constexpr std::uint64_t readiness_seconds = 15;

private:
    std::uint8_t partition;
    System_call_api_interface* api{nullptr};
    Daemon_process_info* main_record{nullptr};
};

#endif

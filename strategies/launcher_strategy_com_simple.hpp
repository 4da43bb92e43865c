// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_SIMPLE_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_SIMPLE_HPP

#include <cstdint>
#include <string>

#include "strategies/interface_address_source.hpp"
#include "strategies/launcher_strategy_com.hpp"

// One communication daemon on a partition with a single vehicle network; started without
// a readiness wait.
class Launcher_strategy_COM_simple : public Launcher_strategy_COM {
public:
    explicit Launcher_strategy_COM_simple(std::uint8_t partition);
    ~Launcher_strategy_COM_simple() override;
    Launcher_strategy_COM_simple(const Launcher_strategy_COM_simple&) = delete;
    Launcher_strategy_COM_simple& operator=(const Launcher_strategy_COM_simple&) = delete;

    bool prepare(System_call_api_interface* api, Launcher_interface* launcher) override;
    bool start() override;
    void stop() override;
    Daemon_handler_interface* get_daemon_handler() override;
    virtual bool prepare_system(System_call_api_interface* api);

    // The emulator's address is looked up through this source; it must outlive the
    // strategy. Null restores the system's own.
    void set_address_source(Interface_address_source_interface* source);

private:
    bool choose_address();
    bool find_emulator_address();

    std::uint8_t partition;
    System_call_api_interface* api{nullptr};
    std::string address;
    std::string interface_name;
    Daemon_process_info* main_record{nullptr};
    Interface_address_source system_address_source;
    Interface_address_source_interface* address_source{&system_address_source};
};

#endif

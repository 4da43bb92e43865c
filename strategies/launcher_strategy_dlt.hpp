// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_DLT_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_DLT_HPP

#include <cstdint>
#include <string>

#include "strategies/daemon_process_info.hpp"
#include "strategies/directory_reader.hpp"
#include "strategies/launcher_strategy_interface.hpp"

// The log daemon, its proxy and the system logger; the hypervisor console stays quiet
// while they run.
class Launcher_strategy_DLT : public Launcher_strategy_interface {
public:
    explicit Launcher_strategy_DLT(std::uint8_t partition);
    ~Launcher_strategy_DLT() override;
    Launcher_strategy_DLT(const Launcher_strategy_DLT&) = delete;
    Launcher_strategy_DLT& operator=(const Launcher_strategy_DLT&) = delete;

    bool prepare(System_call_api_interface* api, Launcher_interface* launcher) override;
    bool start() override;
    void stop() override;
    Daemon_handler_interface* get_daemon_handler() override;

    // The configuration search reads "/etc/" through this reader; it must outlive the
    // strategy. Null restores the system's own.
    void set_directory_reader(Directory_reader_interface* reader);

    static constexpr std::uint64_t readiness_seconds = 3;

private:
    bool get_config_file();
    void set_console_quiet();
    void set_console_verbose();
    bool start_companions();
    void terminate_all();

    std::uint8_t partition;
    System_call_api_interface* api{nullptr};
    Daemon_process_info* log_daemon_record{nullptr};
    Daemon_process_info* proxy_record{nullptr};
    Daemon_process_info* system_logger_record{nullptr};
    Directory_reader system_directory_reader;
    Directory_reader_interface* directory_reader{&system_directory_reader};
};

#endif

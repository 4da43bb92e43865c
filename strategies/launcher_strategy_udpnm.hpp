// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_UDPNM_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_UDPNM_HPP

#include <cstdint>

#include "strategies/daemon_process_info.hpp"
#include "strategies/directory_reader.hpp"
#include "strategies/launcher_strategy_interface.hpp"

// The UDP network management daemon; on the housekeeping partition nothing is started and
// the launcher is kept running.
class Launcher_strategy_UDPNM : public Launcher_strategy_interface {
public:
    explicit Launcher_strategy_UDPNM(std::uint8_t partition);
    ~Launcher_strategy_UDPNM() override;
    Launcher_strategy_UDPNM(const Launcher_strategy_UDPNM&) = delete;
    Launcher_strategy_UDPNM& operator=(const Launcher_strategy_UDPNM&) = delete;

    bool prepare(System_call_api_interface* api, Launcher_interface* launcher) override;
    bool start() override;
    void stop() override;
    Daemon_handler_interface* get_daemon_handler() override;
    virtual bool run();

    // The configuration search reads its directory through this reader; it must outlive
    // the strategy. Null restores the system's own.
    void set_directory_reader(Directory_reader_interface* reader);

    static constexpr std::uint64_t readiness_seconds = 3;

private:
    std::uint8_t partition;
    System_call_api_interface* api{nullptr};
    Daemon_process_info* main_record{nullptr};
    Directory_reader system_directory_reader;
    Directory_reader_interface* directory_reader{&system_directory_reader};
};

#endif

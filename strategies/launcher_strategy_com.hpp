// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_HPP
#define STRATA_STRATEGIES_LAUNCHER_STRATEGY_COM_HPP

#include <cstdint>
#include <string>

#include "strategies/daemon_process_info.hpp"
#include "strategies/directory_reader.hpp"
#include "strategies/launcher_strategy_interface.hpp"

// The command line of the SOME/IP communication daemon, shared by the COM strategies.
class Launcher_strategy_COM : public Launcher_strategy_interface {
public:
    static const std::string daemon_executable;
    static const std::string instance_name;

    virtual void build_command_line(Daemon_process_info& record, std::uint8_t partition, const std::string& instance,
                                    const std::string& address, const std::string& interface_name);
    virtual void add_manifest_files(Daemon_process_info& record, const std::string& manifest_directory, bool use_dummy);
    virtual void add_log_options(Daemon_process_info& record);

    // The library and manifest searches read directories through this reader; it must
    // outlive the strategy. Null restores the system's own.
    void set_directory_reader(Directory_reader_interface* reader);

protected:
    void add_security_options(Daemon_process_info& record);
    Directory_reader_interface& directory_reader();

private:
    Directory_reader system_directory_reader;
    Directory_reader_interface* injected_directory_reader{nullptr};
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_LAUNCHER_LIFECYCLE_HPP
#define STRATA_LAUNCHER_LAUNCHER_LIFECYCLE_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "common/launcher_types.hpp"
#include "dlt_activation/i_dlt_activation_flag_observer.hpp"
#include "dtc/dtc_service.hpp"
#include "launcher/em_handler_interface.hpp"
#include "launcher/launcher_interface.hpp"
#include "process/system_call_api_interface.hpp"
#include "strategies/launcher_strategy_interface.hpp"

// One run of the launcher: argument, logging, configuration, then the restart loop until
// a signal, a child's death or a failure ends it. The result is the exit status.
class Launcher_lifecycle {
public:
    using Strategy_factory = Launcher_strategy_interface* (*)(const Launcher_configuration&);
    using Dtc_service_factory = std::shared_ptr<DTCService> (*)(const std::string&, std::function<void()>);

    using Dlt_flag_poll = void (*)(std::uint8_t, std::uint32_t&, IDLTActivationFlagObserver&);

    // Where the per-pass strategy and the DTC service come from and what polls the DLT
    // flag; production uses createLauncherStrategy, CreateDTCService and
    // check_dlt_flag_file.
    struct Collaborators {
        Strategy_factory create_strategy;
        Dtc_service_factory create_dtc_service;
        Dlt_flag_poll poll_dlt_flag;
    };

    Launcher_lifecycle(System_call_api_interface& api, IDLTActivationFlagObserver& observer,
                       Collaborators collaborators);
    ~Launcher_lifecycle();
    Launcher_lifecycle(const Launcher_lifecycle&) = delete;
    Launcher_lifecycle& operator=(const Launcher_lifecycle&) = delete;

    int run(int argc, char** argv);

private:
    bool is_dlt() const { return configuration.type == DLT; }
    void init_dlt_launcher();
    void start_dtc_service();
    void restart_loop();
    // One pass up to the run phase; false when the loop must end now.
    bool begin_pass(bool& daemons_running);
    void write_restart_line() const;
    void register_without_strategy();
    bool prepare_and_start();
    bool handle_failed_start();
    void retry_dlt_start();
    void launcher_main_loop(bool daemons_running);
    void poll_until_pass_ends();
    void shutdown_launcher(const std::string& reason);
    void terminate();

    System_call_api_interface& api;
    IDLTActivationFlagObserver& observer;
    Collaborators collaborators;

    Launcher_configuration configuration;
    std::string app_name{"INVALID_PROCESS"};
    EM_handler_interface* em_handler{nullptr};
    Launcher_interface* launcher{nullptr};
    Launcher_strategy_interface* strategy{nullptr};
    int failure{0};
    int retry_counter{0};
    std::uint32_t poll_counter{0};
};

#endif

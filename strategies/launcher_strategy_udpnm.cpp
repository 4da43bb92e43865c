// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_udpnm.hpp"

#include <string>

#include "ara/log/logging.hpp"
#include "strategies/child_setup.hpp"
#include "support/error_line.hpp"

namespace {

const std::string daemon_path{"/usr/bin/quor_udpnmd"};
const std::string notify_socket{"/var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container"};
const std::string instance{"udpnm-daemon-1-container"};
const std::string configuration_directory{"/data/target/etc/adaptive/ara_UdpNm/"};
const std::string adaptive_configuration{"quor_udpnm_vosk1_sys01.json"};
const std::string java_configuration{"quor_udpnm_vosk1_sys02.json"};
const std::string default_configuration{"quor_udpnm.json"};

const child_setup::Config_search_texts config_texts{
    "Launcher_strategy_UDPNM : directory ",
    "Launcher_strategy_UDPNM : config file= ", "Launcher_strategy_UDPNM : COMMAND LINE ARGU "};
const child_setup::Run_texts run_texts{"Launcher_strategy_UDPNM : run  PATH", "Launcher_strategy_UDPNM : ", "run UdpNm",
                                       false, false};

const std::string& configuration_for(std::uint8_t partition)
{
    switch (partition) {
        case vm_adaptive:
            return adaptive_configuration;
        case vm_java:
            return java_configuration;
        default:
            return default_configuration;
    }
}

}  // namespace

Launcher_strategy_UDPNM::Launcher_strategy_UDPNM(std::uint8_t partition_of_host) : partition(partition_of_host) {}

Launcher_strategy_UDPNM::~Launcher_strategy_UDPNM()
{
    ara::log::LogDebug() << "Launcher_strategy_UDPNM :delete ...";
    child_setup::delete_record(main_record);
}

bool Launcher_strategy_UDPNM::prepare(System_call_api_interface* system_call, Launcher_interface* launcher)
{
    (void)launcher;
    ara::log::LogDebug() << "Launcher_strategy_UDPNM :prepare...";
    api = system_call;
    child_setup::delete_record(main_record);
    main_record = new Daemon_process_info();
    main_record->path = daemon_path;
    main_record->argv.push_back(daemon_path);
    const bool configured = child_setup::get_config_file(*directory_reader, config_texts, configuration_directory,
                                                         configuration_for(partition), main_record->argv);
    main_record->notify_socket_path = notify_socket;
    main_record->daemon_handler = new Daemon_handler(main_record->notify_socket_path, api);
    if (!main_record->daemon_handler->init_socket_for_notify()) {
        write_error_line("LauncherStrategyUDPNM : init_socket_for_notify failed");
        return false;
    }
    if (!configured) {
        return false;
    }
    child_setup::append_environment(main_record->envp, main_record->notify_socket_path, instance);
    return true;
}

bool Launcher_strategy_UDPNM::start()
{
    ara::log::LogDebug() << "Launcher_strategy_UDPNM : start...";
    if (partition == vm_housekeeping) {
        write_error_line("[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher running...");
        return true;
    }
    return run();
}

bool Launcher_strategy_UDPNM::run()
{
    if (main_record == nullptr || main_record->daemon_handler == nullptr) {
        write_error_line("[LS_UDPNM]: UdpNM daemon can't be created");
        return false;
    }
    child_setup::log_run(run_texts, *main_record);
    if (child_setup::create_process(api, *main_record) == -1) {
        write_error_line("[LS_UDPNM]: UdpNM daemon can't be created");
        return false;
    }
    if (!main_record->daemon_handler->get_ready_child(readiness_seconds)) {
        write_error_line("[LS_UPDNM]: udpnm-daemon-1-container is not ready reached time out");
        return false;
    }
    ara::log::LogDebug() << "[LS_UPDNM]: udpnm-daemon-1-container is started";
    return true;
}

void Launcher_strategy_UDPNM::stop()
{
    ara::log::LogDebug() << "stop UDPNM daemon ...";
    if (main_record == nullptr || main_record->daemon_handler == nullptr) {
        return;
    }
    // Without a child the pid is -1, which the system call seam refuses to signal.
    (void)main_record->daemon_handler->send_termination(main_record->pid);
    child_setup::wait_while_signal_delivered(api, main_record->pid, SIGKILL, nullptr,
                                             "Child UdpNm daemon still runinng...");
}

Daemon_handler_interface* Launcher_strategy_UDPNM::get_daemon_handler()
{
    return main_record == nullptr ? nullptr : main_record->daemon_handler;
}

void Launcher_strategy_UDPNM::set_directory_reader(Directory_reader_interface* reader)
{
    directory_reader = reader == nullptr ? &system_directory_reader : reader;
}

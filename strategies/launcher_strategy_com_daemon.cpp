// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_com_daemon.hpp"

#include <string>

#include "ara/log/logging.hpp"
#include "strategies/child_setup.hpp"
#include "support/error_line.hpp"

namespace {

const std::string management_notify_socket{"/var/run/adaptive/ara_Com/com_management_daemon"};
const std::string state_manager_socket{"/var/run/adaptive/ara_Com/ara_com_sm"};
const std::string gateway_socket{"/var/run/adaptive/ara_Com/ara_com_gw_1_"};

}  // namespace

Launcher_strategy_COM_daemon::Launcher_strategy_COM_daemon(std::uint8_t partition_of_host)
    : partition(partition_of_host)
{
}

Launcher_strategy_COM_daemon::~Launcher_strategy_COM_daemon()
{
    child_setup::delete_record(main_record);
    ara::log::LogDebug() << "[LS_COM_S]: Daemon destroyed";
}

bool Launcher_strategy_COM_daemon::prepare_system(System_call_api_interface* system_call)
{
    ara::log::LogDebug() << "Launcher_strategy_COM_daemon prepare_system...";
    api = system_call;
    child_setup::delete_record(main_record);
    main_record = new Daemon_process_info();
    main_record->notify_socket_path = management_notify_socket;
    if (api == nullptr) {
        return false;
    }
    main_record->daemon_handler = new Daemon_handler(main_record->notify_socket_path, api);
    main_record->process_factory = new Process_factory(api);
    const bool bound = main_record->daemon_handler->init_socket_for_notify();
    if (!bound) {
        write_error_line("[LS_COM_S]: init_socket_for_notify failed");
    }
    return bound;
}

bool Launcher_strategy_COM_daemon::prepare(System_call_api_interface* system_call, Launcher_interface* launcher)
{
    (void)launcher;
    // The management daemon serves every partition alike.
    (void)partition;
    const bool system_prepared = prepare_system(system_call);
    ara::log::LogDebug() << "Launcher_strategy_COM_daemon prepare...";
    if (!system_prepared) {
        return false;
    }
    main_record->path = daemon_executable;
    main_record->argv = {daemon_executable, "-d", "-e", state_manager_socket, "-g", gateway_socket};
    add_log_options(*main_record);
    child_setup::append_environment(main_record->envp, main_record->notify_socket_path, instance_name);
    return true;
}

bool Launcher_strategy_COM_daemon::start()
{
    ara::log::LogDebug() << "Launcher_strategy_COM_daemon start";
    if (main_record == nullptr || main_record->daemon_handler == nullptr) {
        write_error_line("[LS_COM_S]: com_daemon is not ready");
        return false;
    }
    ara::log::LogDebug() << "create process " << main_record->path;
    const pid_t pid = child_setup::create_process(api, *main_record);
    ara::log::LogDebug() << "Start com_daemon PID= " << pid;
    if (!main_record->daemon_handler->get_ready_child(readiness_seconds)) {
        write_error_line("[LS_COM_S]: com_daemon is not ready");
        return false;
    }
    ara::log::LogDebug() << "[LS_COM_S]: com_daemon is ready";
    return true;
}

void Launcher_strategy_COM_daemon::stop()
{
    if (main_record == nullptr) {
        return;
    }
    ara::log::LogDebug() << "Launcher_strategy_COM_daemon: Terminating child with PID " << main_record->pid;
    if (main_record->pid == -1 || main_record->process_factory == nullptr || main_record->daemon_handler == nullptr) {
        return;
    }
    (void)main_record->daemon_handler->send_termination(main_record->pid);
    child_setup::wait_while_signal_delivered(api, main_record->pid, SIGKILL, main_record->process_factory,
                                             "Child still runinng...");
}

Daemon_handler_interface* Launcher_strategy_COM_daemon::get_daemon_handler()
{
    return main_record == nullptr ? nullptr : main_record->daemon_handler;
}

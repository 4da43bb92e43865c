// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_dlt.hpp"

#include <fstream>

#include "common/silent_trace.hpp"
#include "strategies/child_setup.hpp"
#include "support/error_line.hpp"
#include "support/logging.hpp"

namespace {

const std::string log_daemon_path{"/usr/bin/dlt-daemon"};
const std::string proxy_path{"/usr/bin/dltproxyd"};
const std::string proxy_configuration{"/data/target/etc/adaptive/ara_DLT/dlt_proxy.json"};
const std::string system_logger_path{"/usr/bin/dlt-system"};
const std::string notify_socket{"/var/run/adaptive/ara_DLT/dlt_launch_daemon"};
const std::string instance{"dlt-daemon-container"};
const std::string configuration_directory{"/etc/"};
const std::string adaptive_configuration{"dlt_ara_adaptive_vm.conf"};
const std::string java_configuration{"dlt_ara_java_vm.conf"};
const std::string housekeeping_configuration{"dlt_ara_hk_vm.conf"};
const std::string emulator_configuration{"dlt_ara_qemu.conf"};
const std::string proxy_process_name{"dltproxyd"};

const child_setup::Config_search_texts config_texts{
    "Launcher_strategy_DLT : directory ",
    "Launcher_strategy_DLT : config file= ", "Launcher_strategy_DLT : COMMAND LINE ARGU "};
const child_setup::Run_texts run_texts{"Launcher_strategy_DLT : run  PATH",
                                       "Launcher_strategy_DLT : ", "run dlt-process", true, true};

const std::string& configuration_for(std::uint8_t partition)
{
    switch (partition) {
        case vm_adaptive:
            return adaptive_configuration;
        case vm_java:
            return java_configuration;
        case vm_housekeeping:
            return housekeeping_configuration;
        default:
            return emulator_configuration;
    }
}

Daemon_process_info* new_companion_record(const std::string& path, std::vector<std::string> argv)
{
    auto* record = new Daemon_process_info();
    record->path = path;
    record->argv = std::move(argv);
    // The companions report through the log daemon's socket, if at all.
    child_setup::append_environment(record->envp, notify_socket, instance);
    return record;
}

pid_t pid_of(const Daemon_process_info* record)
{
    return record == nullptr ? -1 : record->pid;
}

}  // namespace

Launcher_strategy_DLT::Launcher_strategy_DLT(std::uint8_t partition_of_host) : partition(partition_of_host) {}

Launcher_strategy_DLT::~Launcher_strategy_DLT()
{
    silent_trace("Launcher_strategy_DLT :delete ...");
    silent_trace("Launcher_strategy_DLT :delete dlt-daemon ...");
    child_setup::delete_record(log_daemon_record);
    silent_trace("Launcher_strategy_DLT :delete dlt-proxyd ...");
    child_setup::delete_record(proxy_record);
    silent_trace("Launcher_strategy_DLT :delete dlt-system ...");
    child_setup::delete_record(system_logger_record);
}

bool Launcher_strategy_DLT::prepare(System_call_api_interface* system_call, Launcher_interface* launcher)
{
    (void)launcher;
    write_error_line("Launcher_strategy_DLT :prepare...");
    api = system_call;
    child_setup::delete_record(log_daemon_record);
    child_setup::delete_record(proxy_record);
    child_setup::delete_record(system_logger_record);
    log_daemon_record = new Daemon_process_info();
    log_daemon_record->path = log_daemon_path;
    // Without its configuration the log daemon still runs on its built-in defaults.
    if (!get_config_file()) {
        write_error_line("LauncherStrategyDLT : get_dltconfig_file failed");
    }
    log_daemon_record->notify_socket_path = notify_socket;
    log_daemon_record->daemon_handler = new Daemon_handler(log_daemon_record->notify_socket_path, api);
    if (!log_daemon_record->daemon_handler->init_socket_for_notify()) {
        write_error_line("LauncherStrategyDLT : init_socket_for_notify failed");
        return false;
    }
    child_setup::append_environment(log_daemon_record->envp, log_daemon_record->notify_socket_path, instance);
    proxy_record = new_companion_record(proxy_path, {proxy_path, "-c", proxy_configuration});
    system_logger_record = new_companion_record(system_logger_path, {system_logger_path});
    return true;
}

bool Launcher_strategy_DLT::start()
{
    write_error_line("Launcher_strategy_DLT : start...");
    bool started = false;
    if (log_daemon_record == nullptr || proxy_record == nullptr || system_logger_record == nullptr) {
        silent_trace("[LS_DLT]: dlt_daemon can't be created");
    } else {
        child_setup::log_run(run_texts, *log_daemon_record);
        if (child_setup::create_process(api, *log_daemon_record) == -1) {
            silent_trace("[LS_DLT]: dlt_daemon can't be created");
        } else {
            started = start_companions();
        }
    }
    set_console_quiet();
    return started;
}

void Launcher_strategy_DLT::stop()
{
    write_error_line("STOP DLT LAUNCHER ...");
    terminate_all();
    child_setup::wait_while_signal_delivered(api, pid_of(log_daemon_record), SIGKILL, nullptr,
                                             "Child dlt daemon still runinng...", true);
    child_setup::wait_while_signal_delivered(api, pid_of(proxy_record), SIGKILL, nullptr,
                                             "Child dlt proxyd still runinng...", true);
    child_setup::wait_while_signal_delivered(api, pid_of(system_logger_record), SIGKILL, nullptr,
                                             "Child dlt system still runinng...", true);
    set_console_verbose();
    write_error_line("STOP DLT LAUNCHER done ...");
    // A proxy left behind by an earlier launcher would hold the proxy's port.
    silent_trace("Launcher_strategy_DLT : kill " + proxy_process_name + " processes");
    if (api != nullptr) {
        (void)api->system("killall -s 15 " + proxy_process_name);
    }
    log_debug() << "STOP DLT LAUNCHER done ...";
}

Daemon_handler_interface* Launcher_strategy_DLT::get_daemon_handler()
{
    return log_daemon_record == nullptr ? nullptr : log_daemon_record->daemon_handler;
}

void Launcher_strategy_DLT::set_directory_reader(Directory_reader_interface* reader)
{
    directory_reader = reader == nullptr ? &system_directory_reader : reader;
}

bool Launcher_strategy_DLT::get_config_file()
{
    std::vector<std::string> found_argv{log_daemon_path};
    if (!child_setup::get_config_file(*directory_reader, config_texts, configuration_directory,
                                      configuration_for(partition), found_argv)) {
        return false;
    }
    log_daemon_record->argv = std::move(found_argv);
    return true;
}

bool Launcher_strategy_DLT::start_companions()
{
    silent_trace("run " + proxy_path);
    const pid_t proxy_pid = child_setup::create_process(api, *proxy_record);
    silent_trace("run " + system_logger_path);
    const pid_t system_logger_pid = child_setup::create_process(api, *system_logger_record);
    bool started = true;
    if (proxy_pid == -1) {
        write_error_line("[LS_DLT]: dlt proxy daemon is not able to start");
        started = false;
    }
    if (system_logger_pid == -1) {
        write_error_line("[LS_DLT]: dlt system daemon is not able to start");
        started = false;
    }
    if (started && !log_daemon_record->daemon_handler->get_ready_child(readiness_seconds)) {
        write_error_line("[LS_DLT]: dlt_daemon is not ready reached time out");
        return false;
    }
    silent_trace("[LS_DLT]: dlt_daemon is started");
    return started;
}

void Launcher_strategy_DLT::terminate_all()
{
    if (log_daemon_record == nullptr || log_daemon_record->daemon_handler == nullptr) {
        return;
    }
    Daemon_handler* handler = log_daemon_record->daemon_handler;
    log_debug() << "stop DTL daemon ...";
    (void)handler->send_termination(pid_of(log_daemon_record));
    log_debug() << "stop DTL proxyd ...";
    (void)handler->send_termination(pid_of(proxy_record));
    log_debug() << "stop DTL system ...";
    (void)handler->send_termination(pid_of(system_logger_record));
}

void Launcher_strategy_DLT::set_console_quiet()
{
    if (partition == qemu_arm64 || api == nullptr) {
        return;
    }
    std::ofstream console(api->get_quiet_file_path());
    if (!console.is_open()) {
        write_error_line("DLT_Launcher: Cannot read virtual console file at stop");
        return;
    }
    console << "1 \n";
    silent_trace("Stop virtual console 1 ");
}

void Launcher_strategy_DLT::set_console_verbose()
{
    if (partition == qemu_arm64 || api == nullptr) {
        return;
    }
    std::ofstream console(api->get_quiet_file_path());
    if (!console.is_open()) {
        write_error_line("DLT_Launcher: Cannot read virtual console file at start");
        return;
    }
    console << "0 \n";
    silent_trace("Start virtual console 0 ");
}

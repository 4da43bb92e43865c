// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_phm.hpp"

#include <sys/stat.h>

#include <string>

#include "ara/log/logging.hpp"
#include "strategies/child_setup.hpp"
#include "support/error_line.hpp"

namespace {

const std::string daemon_path{"/usr/bin/quor_phmd"};
const std::string notify_socket{"/var/run/adaptive/ara_PHM/phm_launch_daemon"};
const std::string instance{"phm-daemon-container"};
const char* const watchdog_device = "/dev/watchdog";
const child_setup::Run_texts run_texts{"Launcher_strategy_PHM : run  PATH", "Launcher_strategy_PHM : ", "run phm",
                                       false, false};

}  // namespace

Launcher_strategy_PHM::Launcher_strategy_PHM(std::uint8_t partition_of_host) : partition(partition_of_host) {}

Launcher_strategy_PHM::~Launcher_strategy_PHM()
{
    ara::log::LogDebug() << "Launcher_strategy_PHM :delete ...";
    child_setup::delete_record(main_record);
}

bool Launcher_strategy_PHM::prepare(System_call_api_interface* system_call, Launcher_interface* launcher)
{
    (void)launcher;
    ara::log::LogDebug() << "Launcher_strategy_PHM :prepare...";
    api = system_call;
    child_setup::delete_record(main_record);
    main_record = new Daemon_process_info();
    main_record->path = daemon_path;
    main_record->argv = {daemon_path, "--autostart"};
    add_watchdog_option();
    main_record->notify_socket_path = notify_socket;
    // Bound only in start, right before the daemon is created.
    main_record->daemon_handler = new Daemon_handler(main_record->notify_socket_path, api);
    child_setup::append_environment(main_record->envp, main_record->notify_socket_path, instance);
    return true;
}

bool Launcher_strategy_PHM::start()
{
    ara::log::LogDebug() << "Launcher_strategy_PHM : start...";
    if (main_record == nullptr || main_record->daemon_handler == nullptr) {
        write_error_line("[LS_PHM]: phm_daemon can't be created");
        return false;
    }
    child_setup::log_run(run_texts, *main_record);
    // A socket that can't be bound shows as the readiness time-out below.
    (void)main_record->daemon_handler->init_socket_for_notify();
    if (child_setup::create_process(api, *main_record) == -1) {
        write_error_line("[LS_PHM]: phm_daemon can't be created");
        ara::log::LogInfo() << "[LS_PHM]: phm_daemon is started";
        return false;
    }
    if (!main_record->daemon_handler->get_ready_child(readiness_seconds)) {
        write_error_line("[LS_PHM]: phm_daemon is not ready");
        return false;
    }
    ara::log::LogInfo() << "[LS_PHM]: phm_daemon is started";
    return true;
}

void Launcher_strategy_PHM::stop()
{
    ara::log::LogDebug() << "stop PHM daemon ...";
    if (main_record == nullptr || main_record->daemon_handler == nullptr) {
        return;
    }
    (void)main_record->daemon_handler->send_termination(main_record->pid);
    // Probe only: the daemon must be allowed to finish its shutdown, however long it takes.
    child_setup::wait_while_signal_delivered(api, main_record->pid, 0, nullptr, "Child phm daemon still running...");
}

Daemon_handler_interface* Launcher_strategy_PHM::get_daemon_handler()
{
    return main_record == nullptr ? nullptr : main_record->daemon_handler;
}

void Launcher_strategy_PHM::add_watchdog_option()
{
    switch (partition) {
        case vm_adaptive:
        case vm_java:
        case vm_housekeeping: {
            struct stat device {};
            if (api == nullptr || api->stat(watchdog_device, &device) != 0) {
                ara::log::LogWarn() << "PHM Launcher: dummy watchdog will be activated as no watchdog device is available!";
                main_record->argv.emplace_back("--dummy_watchdog");
            } else {
                ara::log::LogInfo() << "PHM Launcher: real watchdog enabled!";
            }
            break;
        }
        case qemu_arm64:
            // The emulator's watchdog can't be trusted to reset anything.
            main_record->argv.emplace_back("--dummy_watchdog");
            break;
        default:
            write_error_line("Launcher_strategy_PHM : no linux partition ");
            break;
    }
}

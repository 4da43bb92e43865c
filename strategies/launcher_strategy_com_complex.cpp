// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_com_complex.hpp"

#include <string>

#include "ara/log/logging.hpp"
#include "common/silent_trace.hpp"
#include "strategies/child_setup.hpp"
#include "support/error_line.hpp"

namespace {

const std::string unbound_notify_socket{" "};
const std::string vlan0_manifests{"/data/target/etc/adaptive/ara_COM/comManifests_HK/VLAN_INFOTAINMENT/"};
const std::string vlan1_manifests{"/data/target/etc/adaptive/ara_COM/comManifests_HK/VLAN_CONNECT/"};

bool child_running(const Daemon_process_info* record)
{
    return record != nullptr && record->process_factory != nullptr && record->process_factory->is_running();
}

}  // namespace

Launcher_strategy_COM_complex::~Launcher_strategy_COM_complex()
{
    silent_trace("[LS_COM_C]: destructor called");
    child_setup::delete_record(vlan0_record);
    child_setup::delete_record(vlan1_record);
}

bool Launcher_strategy_COM_complex::prepare(System_call_api_interface* system_call, Launcher_interface* launcher)
{
    (void)launcher;
    ara::log::LogVerbose() << "[LS_COM_C]: preparing for COM daemon in HK VM";
    api = system_call;
    child_setup::delete_record(vlan0_record);
    child_setup::delete_record(vlan1_record);

    vlan0_record = new Daemon_process_info();
    vlan0_record->path = daemon_executable;
    vlan0_record->notify_socket_path = unbound_notify_socket;
    vlan0_record->daemon_handler = new Daemon_handler(vlan0_record->notify_socket_path, api);
    vlan0_record->process_factory = new Process_factory(api);

    vlan1_record = new Daemon_process_info();
    vlan1_record->path = daemon_executable;
    vlan1_record->process_factory = new Process_factory(api);

    build_command_line(*vlan0_record, vm_housekeeping, "ara_com_gw_1_", "fd4e:91a2:5c0:3::8:10", "eth0.3");
    add_manifest_files(*vlan0_record, vlan0_manifests, true);
    build_command_line(*vlan1_record, vm_housekeeping, "ara_com_gw_2_", "fd4e:91a2:5c0:4::8:10", "eth0.4");
    add_manifest_files(*vlan1_record, vlan1_manifests, true);

    child_setup::append_environment(vlan0_record->envp, vlan0_record->notify_socket_path, instance_name);
    // The second daemon must not answer on the first one's socket.
    child_setup::append_environment_without_notify(vlan1_record->envp, instance_name);
    ara::log::LogVerbose() << "[LS_COM_C]: COM daemon preparation done for HK VM";
    return true;
}

bool Launcher_strategy_COM_complex::start()
{
    if (vlan0_record == nullptr || vlan0_record->daemon_handler == nullptr || vlan1_record == nullptr) {
        ara::log::LogError() << "[LS_COM_C]: daemon_handler is empty. Please prepare the strategy";
        return false;
    }
    if (child_setup::create_process(api, *vlan0_record) == -1) {
        write_error_line("[LS_COM_C]: com_vlan0_daemon cannot fork");
        return false;
    }
    if (child_setup::create_process(api, *vlan1_record) == -1) {
        write_error_line("[LS_COM_C]: SOME/IP daemon vlan0/1 can't be started");
        return false;
    }
    return true;
}

void Launcher_strategy_COM_complex::stop()
{
    ara::log::LogDebug() << "[LS_COM_C]: Stopping com_daemon";
    if (vlan0_record == nullptr || vlan0_record->daemon_handler == nullptr || vlan1_record == nullptr) {
        return;
    }
    Daemon_handler* handler = vlan0_record->daemon_handler;
    const bool vlan0_terminated = handler->send_termination(vlan0_record->pid);
    const bool vlan1_terminated = handler->send_termination(vlan1_record->pid);
    if (!wait_for_children()) {
        write_error_line("[LS_COM_C]: Time out, but child still running...");
    }
    kill_if_needed(*vlan0_record, vlan0_terminated, "[LS_COM_C]: Sending Kill signal to com_vlan0_daemon...");
    kill_if_needed(*vlan1_record, vlan1_terminated, "[LS_COM_C]: Sending Kill signal to com_vlan1_daemon...");
    ara::log::LogDebug() << "[LS_COM_C]: All com_daemon are stopped";
}

Daemon_handler_interface* Launcher_strategy_COM_complex::get_daemon_handler()
{
    return vlan0_record == nullptr ? nullptr : vlan0_record->daemon_handler;
}

bool Launcher_strategy_COM_complex::any_child_running() const
{
    return child_running(vlan0_record) || child_running(vlan1_record);
}

bool Launcher_strategy_COM_complex::wait_for_children()
{
    for (int check = 1; check < termination_checks; ++check) {
        if (!any_child_running()) {
            return true;
        }
        child_setup::sleep_100_ms();
    }
    return !any_child_running();
}

void Launcher_strategy_COM_complex::kill_if_needed(Daemon_process_info& record, bool terminated, const char* kill_text)
{
    if (terminated && !child_running(&record)) {
        return;
    }
    write_error_line(kill_text);
    (void)vlan0_record->daemon_handler->send_kill(record.pid);
}

// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_com_simple.hpp"

#include <vector>

#include "ara/log/logging.hpp"
#include "common/silent_trace.hpp"
#include "strategies/child_setup.hpp"
#include "support/error_line.hpp"

namespace {

// No readiness socket: the daemon finds a blank NOTIFY_SOCKET and reports nowhere.
const std::string unbound_notify_socket{" "};
const std::string emulator_interface{"netns0"};
const std::string manifest_directory{"/data/target/etc/adaptive/ara_COM/comManifest/"};
const std::string gateway_instance{"ara_com_gw_1_"};

}  // namespace

Launcher_strategy_COM_simple::Launcher_strategy_COM_simple(std::uint8_t partition_of_host)
    : partition(partition_of_host)
{
}

Launcher_strategy_COM_simple::~Launcher_strategy_COM_simple()
{
    child_setup::delete_record(main_record);
    ara::log::LogDebug() << "[LS_COM_S]: Daemon destroyed";
}

bool Launcher_strategy_COM_simple::prepare_system(System_call_api_interface* system_call)
{
    ara::log::LogDebug() << "Launcher_strategy_COM_simple prepare_system...";
    api = system_call;
    child_setup::delete_record(main_record);
    main_record = new Daemon_process_info();
    main_record->notify_socket_path = unbound_notify_socket;
    if (api != nullptr) {
        main_record->daemon_handler = new Daemon_handler(main_record->notify_socket_path, api);
        main_record->process_factory = new Process_factory(api);
    }
    return api != nullptr && main_record->daemon_handler != nullptr;
}

bool Launcher_strategy_COM_simple::prepare(System_call_api_interface* system_call, Launcher_interface* launcher)
{
    (void)launcher;
    const bool system_prepared = prepare_system(system_call);
    ara::log::LogDebug() << "Launcher_strategy_COM_simple prepare...";
    if (!system_prepared || !choose_address()) {
        return false;
    }
    build_command_line(*main_record, partition, gateway_instance, address, interface_name);
    add_manifest_files(*main_record, manifest_directory, true);
    child_setup::append_environment(main_record->envp, main_record->notify_socket_path, instance_name);
    return true;
}

bool Launcher_strategy_COM_simple::start()
{
    ara::log::LogDebug() << "Launcher_strategy_COM_simple start";
    if (address.empty() || main_record == nullptr) {
        ara::log::LogDebug() << "no ip addresses";
        return false;
    }
    ara::log::LogDebug() << "create process " << main_record->path;
    const pid_t pid = child_setup::create_process(api, *main_record);
    ara::log::LogDebug() << "Start com_daemon PID= " << pid;
    // Deliberately true even when the fork failed: this daemon is not awaited, and the pid
    // of -1 in the line above is the only trace of the failure.
    return true;
}

void Launcher_strategy_COM_simple::stop()
{
    if (main_record == nullptr) {
        return;
    }
    ara::log::LogDebug() << "Launcher_strategy_COM_simple: Terminating child with PID " << main_record->pid;
    if (main_record->pid == -1 || main_record->process_factory == nullptr || main_record->daemon_handler == nullptr) {
        return;
    }
    (void)main_record->daemon_handler->send_termination(main_record->pid);
    child_setup::wait_while_signal_delivered(api, main_record->pid, SIGKILL, main_record->process_factory,
                                             "Child still runinng...");
}

Daemon_handler_interface* Launcher_strategy_COM_simple::get_daemon_handler()
{
    return main_record == nullptr ? nullptr : main_record->daemon_handler;
}

void Launcher_strategy_COM_simple::set_address_source(Interface_address_source_interface* source)
{
    address_source = source == nullptr ? &system_address_source : source;
}

bool Launcher_strategy_COM_simple::choose_address()
{
    switch (partition) {
        case vm_adaptive:
            address = "fd4e:91a2:5c0:3::106";
            interface_name = "eth0.3";
            return true;
        case vm_java:
            address = "fd4e:91a2:5c0:4::107";
            interface_name = "eth0.4";
            return true;
        case qemu_arm64:
            return find_emulator_address();
        default:
            write_error_line("Unknown partition. Terminating.");
            return false;
    }
}

bool Launcher_strategy_COM_simple::find_emulator_address()
{
    std::vector<Interface_address> addresses;
    if (!address_source->read_ipv6_addresses(addresses)) {
        write_error_line("Cannot get network interface of qemu.");
        return false;
    }
    // Only a global address is reachable from the host side; the first one wins.
    for (const Interface_address& entry : addresses) {
        if (entry.scope_id == 0 && entry.interface_name == emulator_interface) {
            address = entry.address;
            interface_name = entry.interface_name;
            break;
        }
    }
    // Without an address prepare still succeeds; start reports it.
    return true;
}

// SPDX-License-Identifier: Apache-2.0
#include "launcher/partition_detection.hpp"

#include <map>

#include "ara/log/logging.hpp"
#include "launcher/console.hpp"

namespace {

void log_type(std::uint8_t type)
{
    switch (type) {
        case COM:
            ara::log::LogDebug() << "Launcher: COM";
            break;
        case DLT:
            ara::log::LogDebug() << "Launcher: DLT";
            break;
        case PHM:
            ara::log::LogDebug() << "Launcher: PHM";
            break;
        case UDPNM:
            ara::log::LogDebug() << "Launcher: UDPNM";
            break;
        case COM_BRIDGE:
            ara::log::LogDebug() << "Launcher: COM bridge";
            break;
        default:
            ara::log::LogDebug() << "Unknown Launcher type: " << static_cast<std::int32_t>(type);
            break;
    }
}

}  // namespace

bool detect_partition(const std::string& hostname, std::uint8_t& partition)
{
    // Built per call: detection runs once per process, and nothing keeps the table alive.
    std::map<std::string, std::uint8_t> partitions;
    partitions.emplace("vm_housekeeping", vm_housekeeping);
    partitions.emplace("vm_java", vm_java);
    partitions.emplace("vm_adaptive", vm_adaptive);
    partitions.emplace("qemu-arm64", qemu_arm64);

    const auto found = partitions.find(hostname);
    if (found == partitions.end()) {
        console_line("Launcher configuration: Unknown partition. hostname = " + hostname);
        partition = partition_unknown;
        return false;
    }
    ara::log::LogDebug() << "Launcher configuration: " << hostname << " detected";
    partition = found->second;
    return true;
}

int configure(Launcher_configuration& configuration, std::uint8_t type, System_call_api_interface& api)
{
    ara::log::LogDebug() << "Launcher: Start configuration...";
    configuration.type = type;
    log_type(type);
    ara::log::LogDebug() << "Launcher: Detecting partition...";
    const std::string hostname = api.get_hostname();
    if (hostname.empty()) {
        console_line("Cannot detect hostname of the partition.");
        return 1;
    }
    return detect_partition(hostname, configuration.partition) ? 0 : 1;
}

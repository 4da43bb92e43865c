// SPDX-License-Identifier: Apache-2.0
#include "strategies/launcher_strategy_com.hpp"

#include <vector>

#include "ara/log/logging.hpp"
#include "strategies/child_setup.hpp"
#include "support/error_line.hpp"

const std::string Launcher_strategy_COM::daemon_executable{"/usr/bin/com_daemon"};
const std::string Launcher_strategy_COM::instance_name{"com-daemon-1-container"};

namespace {

const std::string state_manager_socket{"/var/run/adaptive/ara_Com/ara_com_sm"};
const std::string library_directory{"/usr/lib/"};
const std::string iam_library_name{"libvosk1_iam.so.1"};
const std::string iam_library_path{"/usr/lib/libvosk1_iam.so.1"};
const std::string tls_library_name{"libtls_manager_botan.so.1"};
const std::string tls_library_path{"/usr/lib/libtls_manager_botan.so.1"};
const std::string tls_manifest{"/etc/adaptive/ara_COM/com_conf/tls_manager_customer_configuration.json"};
const std::string manifest_pattern{".json"};
const std::string dummy_manifest{"/etc/adaptive/someip_dummy.json"};

}  // namespace

void Launcher_strategy_COM::build_command_line(Daemon_process_info& record, std::uint8_t partition,
                                               const std::string& instance, const std::string& address,
                                               const std::string& interface_name)
{
    // The gateway instance is named by the caller for symmetry only; the daemon derives it.
    (void)instance;
    record.path = daemon_executable;
    record.argv.push_back(daemon_executable);
    record.argv.insert(record.argv.end(),
                       {"-c", "255", "-i", address, "-n", interface_name, "-e", state_manager_socket});
    add_log_options(record);
    // The emulator image carries neither security library.
    if (partition != qemu_arm64) {
        add_security_options(record);
    }
}

void Launcher_strategy_COM::add_manifest_files(Daemon_process_info& record, const std::string& manifest_directory,
                                               bool use_dummy)
{
    std::vector<std::string> manifests;
    const bool searched =
        child_setup::read_directory(directory_reader(), manifest_directory, manifest_pattern, manifests);
    if (!searched || manifests.empty()) {
        if (!use_dummy) {
            return;
        }
        ara::log::LogWarn() << "[LS_COM]: did not any manifest files from " << manifest_directory
                   << " and using dummy json file";
        record.argv.insert(record.argv.end(), {"-m", dummy_manifest});
        return;
    }
    ara::log::LogDebug() << "[LS_COM]: adding manifest files from " << manifest_directory;
    for (const std::string& manifest : manifests) {
        ara::log::LogDebug() << "[LS_COM]: adding manifest file" << manifest;
        record.argv.insert(record.argv.end(), {"-m", manifest});
    }
}

void Launcher_strategy_COM::add_log_options(Daemon_process_info& record)
{
    record.argv.insert(record.argv.end(), {"--log_mode", "remote", "--log_level", "info"});
}

void Launcher_strategy_COM::set_directory_reader(Directory_reader_interface* reader)
{
    injected_directory_reader = reader;
}

void Launcher_strategy_COM::add_security_options(Daemon_process_info& record)
{
    if (child_setup::library_exists(directory_reader(), library_directory, iam_library_name)) {
        record.argv.insert(record.argv.end(), {"--iam_shared_lib", iam_library_path});
    } else {
        write_error_line("Not adding --iam_shared_lib!");
    }
    if (child_setup::library_exists(directory_reader(), library_directory, tls_library_name)) {
        record.argv.insert(record.argv.end(), {"--tls_shared_lib", tls_library_path, "--tls_manifest", tls_manifest});
    } else {
        write_error_line("Not adding --tls_shared_lib and --tls_manifest!");
    }
}

Directory_reader_interface& Launcher_strategy_COM::directory_reader()
{
    if (injected_directory_reader != nullptr) {
        return *injected_directory_reader;
    }
    return system_directory_reader;
}

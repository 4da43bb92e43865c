// SPDX-License-Identifier: Apache-2.0
#include "strategies/child_setup.hpp"

#include <cerrno>
#include <ctime>

#include "common/silent_trace.hpp"
#include "support/error_line.hpp"
#include "ara/log/logging.hpp"
#include "support/logging.hpp"

namespace child_setup {

const std::string path_entry{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"};

namespace {

const std::string notify_socket_prefix{"NOTIFY_SOCKET="};
const std::string instance_prefix{"APP_INSTANCE_ID="};
constexpr long sleep_nanoseconds = 100000000L;

void filter_entries(const std::vector<std::string>& names, const std::string& directory, const std::string& pattern,
                    std::vector<std::string>& files)
{
    for (const std::string& name : names) {
        if (name.find(pattern) != std::string::npos) {
            files.push_back(directory + name);
        }
    }
}

void debug_line(bool via_facade, const std::string& text)
{
    if (via_facade) {
        log_debug() << text;
    } else {
        ara::log::LogDebug() << text;
    }
}

}  // namespace

void append_environment(std::vector<std::string>& envp, const std::string& notify_socket_path,
                        const std::string& instance_name)
{
    envp.push_back(path_entry);
    std::string notify_socket;
    notify_socket.reserve(notify_socket_path.size() + 14);
    notify_socket.append(notify_socket_prefix).append(notify_socket_path);
    envp.push_back(std::move(notify_socket));
    envp.push_back(instance_prefix + instance_name);
}

void append_environment_without_notify(std::vector<std::string>& envp, const std::string& instance_name)
{
    envp.push_back(path_entry);
    envp.push_back(instance_prefix + instance_name);
}

bool read_directory(Directory_reader_interface& reader, const std::string& directory, const std::string& pattern,
                    std::vector<std::string>& files)
{
    std::vector<std::string> names;
    if (!reader.read_entry_names(directory, names)) {
        write_error_line(std::string("Launcher read from directory = ") + directory + " failed ");
        return false;
    }
    filter_entries(names, directory, pattern, files);
    return true;
}

bool library_exists(Directory_reader_interface& reader, const std::string& directory, const std::string& name)
{
    std::vector<std::string> files;
    if (read_directory(reader, directory, name, files) && !files.empty()) {
        ara::log::LogDebug() << "library " << files.front() << " exists";
        return true;
    }
    write_error_line(std::string("library ") + directory + "/" + name + " not exists!");
    return false;
}

bool get_config_file(Directory_reader_interface& reader, const Config_search_texts& texts, const std::string& directory,
                     const std::string& file_name, std::vector<std::string>& argv)
{
    const std::string config_path = directory + file_name;
    std::vector<std::string> names;
    std::vector<std::string> files;
    if (!reader.read_entry_names(directory, names)) {
        write_error_line(texts.directory_text + directory + " doesn't exist ");
    } else {
        filter_entries(names, directory, file_name, files);
    }
    if (files.empty()) {
        write_error_line(texts.config_text + config_path + " is NOT available");
        return false;
    }
    ara::log::LogDebug() << texts.config_text << config_path << " is available";
    argv.emplace_back("-c");
    argv.push_back(config_path);
    ara::log::LogDebug() << texts.command_line_text;
    for (const std::string& argument : argv) {
        ara::log::LogDebug() << "command line ARGV :" << argument;
    }
    return true;
}

void log_run(const Run_texts& texts, const Daemon_process_info& record)
{
    debug_line(texts.via_facade, texts.run_text + record.path + "  ARGU: ");
    for (const std::string& argument : record.argv) {
        debug_line(texts.via_facade, texts.prefix + argument);
    }
    if (texts.run_line_silent) {
        silent_trace(texts.run_line);
    } else {
        debug_line(texts.via_facade, texts.run_line);
    }
    debug_line(texts.via_facade, "==============================================================================");
}

void sleep_100_ms()
{
    timespec remaining{0, sleep_nanoseconds};
    while (::nanosleep(&remaining, &remaining) == -1 && errno == EINTR) {
    }
}

void wait_while_signal_delivered(System_call_api_interface* api, pid_t pid, int probe_signal,
                                 Process_factory_interface* factory, const char* still_running_text,
                                 bool via_facade)
{
    if (api == nullptr) {
        return;
    }
    while (api->kill(pid, probe_signal) == 0 || (factory != nullptr && factory->is_running())) {
        debug_line(via_facade, still_running_text);
        sleep_100_ms();
    }
}

pid_t create_process(System_call_api_interface* api, Daemon_process_info& record)
{
    if (record.process_factory == nullptr) {
        record.process_factory = new Process_factory(api);
    }
    std::vector<std::string> arguments = record.argv;
    const std::vector<std::string> environment = record.envp;
    record.pid = record.process_factory->create_process(record.path, arguments, environment);
    return record.pid;
}

void delete_record(Daemon_process_info*& record) noexcept
{
    if (record == nullptr) {
        return;
    }
    delete record->daemon_handler;
    delete record->process_factory;
    delete record;
    record = nullptr;
}

}  // namespace child_setup

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_CHILD_SETUP_HPP
#define STRATA_STRATEGIES_CHILD_SETUP_HPP

#include <sys/types.h>

#include <string>
#include <vector>

#include "process/process_factory_interface.hpp"
#include "process/system_call_api_interface.hpp"
#include "strategies/daemon_process_info.hpp"
#include "strategies/directory_reader_interface.hpp"

// The pieces of child set-up that every launch strategy shares.
namespace child_setup {

extern const std::string path_entry;

// The texts a strategy's configuration file search reports with.
struct Config_search_texts {
    const char* directory_text;
    const char* config_text;
    const char* command_line_text;
};

// The texts of a strategy's log lines before it forks.
struct Run_texts {
    const char* run_text;
    const char* prefix;
    const char* run_line;
    bool run_line_silent;
    // The DLT strategy keeps its progress lines off the platform log it is about to start.
    bool via_facade;
};

// PATH, NOTIFY_SOCKET and APP_INSTANCE_ID, in the order every daemon expects them.
void append_environment(std::vector<std::string>& envp, const std::string& notify_socket_path,
                        const std::string& instance_name);
// PATH and APP_INSTANCE_ID only, for a daemon that must not find a readiness socket.
void append_environment_without_notify(std::vector<std::string>& envp, const std::string& instance_name);

// Every entry of the directory whose name contains the pattern, as directory + name, in
// directory order.
bool read_directory(Directory_reader_interface& reader, const std::string& directory, const std::string& pattern,
                    std::vector<std::string>& files);
bool library_exists(Directory_reader_interface& reader, const std::string& directory, const std::string& name);
// On success appends "-c" and the found path to argv.
bool get_config_file(Directory_reader_interface& reader, const Config_search_texts& texts, const std::string& directory,
                     const std::string& file_name, std::vector<std::string>& argv);

void log_run(const Run_texts& texts, const Daemon_process_info& record);

// 100 ms, resumed with the remaining time when a signal interrupts it.
void sleep_100_ms();

// Polls kill(pid, probe_signal) every 100 ms until it fails and, when a factory is given,
// that factory has reaped its child.
void wait_while_signal_delivered(System_call_api_interface* api, pid_t pid, int probe_signal,
                                 Process_factory_interface* factory, const char* still_running_text,
                                 bool via_facade = false);

// Creates the record's factory where none exists yet and starts the child; the pid or -1.
pid_t create_process(System_call_api_interface* api, Daemon_process_info& record);

// Frees the record with its handler and factory and clears the pointer. The factory
// blocks until its child has been reaped.
void delete_record(Daemon_process_info*& record) noexcept;

}  // namespace child_setup

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_DAEMON_PROCESS_INFO_HPP
#define STRATA_STRATEGIES_DAEMON_PROCESS_INFO_HPP

#include <sys/types.h>

#include <string>
#include <vector>

#include "process/daemon_handler.hpp"
#include "process/process_factory.hpp"

// Everything the launcher knows about one daemon it launches. Owned by its strategy,
// which deletes the handler and the factory before the record.
struct Daemon_process_info {
    std::string path;
    std::vector<std::string> argv;
    std::vector<std::string> envp;
    std::string notify_socket_path;
    pid_t pid{-1};
    Daemon_handler* daemon_handler{nullptr};
    Process_factory* process_factory{nullptr};
};

#endif

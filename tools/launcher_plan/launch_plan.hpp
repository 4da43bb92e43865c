// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_LAUNCH_PLAN_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_LAUNCH_PLAN_HPP

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

// A file or folder the launcher looks at, and what it finds there.
struct Planned_read {
    std::string path;       // as the launcher names it, without the image root
    std::string kind;       // "file" (existence) or "folder" (entry list)
    bool found{false};
    std::vector<std::string> entries;  // folder entries, "." and ".." left out
};

// One signal the launcher sends while stopping, with whether it reached a daemon.
struct Planned_signal {
    pid_t pid{-1};
    int signal{0};
    bool delivered{false};
};

// How a daemon is stopped: the launcher's own procedure, told in its terms.
struct Stop_method {
    int termination_signal{15};
    std::string probe;          // how the launcher learns that the daemon has gone
    std::string bound;          // how long it waits for that, or "none"
    std::string kill;           // when SIGKILL follows, or "never"
};

struct Planned_daemon {
    pid_t planned_pid{-1};  // stands in for the pid; no process exists
    std::string path;
    std::vector<std::string> argv;
    std::vector<std::string> envp;
    std::string readiness_socket;    // the NOTIFY_SOCKET value handed over, "" without one
    bool readiness_awaited{false};
    std::uint64_t readiness_limit_seconds{0};
    Stop_method stop;
};

struct Launch_plan {
    std::string kind_argument;
    std::uint8_t kind{0};
    std::string kind_name;
    std::string hostname;
    std::uint8_t partition{0};
    std::string strategy;
    std::string root;
    bool prepared{false};
    bool started{false};
    std::vector<Planned_daemon> daemons;
    std::vector<Planned_read> reads;
    std::vector<std::string> bound_sockets;
    std::vector<std::string> removed_paths;
    std::vector<std::string> written_files;   // files the launcher writes to, never written here
    std::vector<std::string> commands;        // shell commands, never run here
    std::vector<Planned_signal> stop_signals;
    std::vector<std::string> console;         // the launcher's own lines while preparing and starting
    std::vector<std::string> notes;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_PROCESS_DAEMON_HANDLER_HPP
#define STRATA_PROCESS_DAEMON_HANDLER_HPP

#include <sys/socket.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

#include "process/daemon_handler_interface.hpp"
#include "process/system_call_api_interface.hpp"

// Owns a child's readiness socket and signals the child.
class Daemon_handler : public Daemon_handler_interface {
public:
    Daemon_handler(const std::string& socket_path, System_call_api_interface* system_call);
    ~Daemon_handler() override;
    Daemon_handler(const Daemon_handler&) = delete;
    Daemon_handler& operator=(const Daemon_handler&) = delete;

    bool get_ready_child(std::uint64_t seconds) override;
    bool send_termination(pid_t pid) override;
    int send_kill(pid_t pid) override;
    bool init_socket_for_notify() override;
    void set_system_call(System_call_api_interface* system_call) override;

private:
    bool preconditions_hold();
    bool receive_ready(int descriptor, msghdr& message, char* buffer, std::size_t capacity);
    std::string bound_path() const;
    void start_draining();
    void stop_draining();
    void drain();

    std::string socket_path;
    int socket_descriptor{-1};
    System_call_api_interface* system_call;
    // After readiness a daemon keeps notifying (status, watchdog); with nobody reading, its
    // blocking sends would stall once the socket's small queue is full.
    std::thread drainer;
    int wake_pipe[2]{-1, -1};
    std::atomic<bool> drain_stopping{false};
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_PROCESS_DAEMON_HANDLER_INTERFACE_HPP
#define STRATA_PROCESS_DAEMON_HANDLER_INTERFACE_HPP

#include <sys/types.h>

#include <cstdint>

class System_call_api_interface;

class Daemon_handler_interface {
public:
    virtual ~Daemon_handler_interface() = default;
    virtual bool get_ready_child(std::uint64_t seconds) = 0;
    // true when delivered
    virtual bool send_termination(pid_t pid) = 0;
    // the raw result of kill: 0 when delivered
    virtual int send_kill(pid_t pid) = 0;
    virtual bool init_socket_for_notify() = 0;
    virtual void set_system_call(System_call_api_interface* system_call) = 0;
};

#endif

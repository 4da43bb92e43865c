// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_PROCESS_SYSTEM_CALL_API_INTERFACE_HPP
#define STRATA_PROCESS_SYSTEM_CALL_API_INTERFACE_HPP

#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <thread>

// The one seam between the supervision code and the operating system. Every call is
// forwarded unchanged, so a substitute can drive each branch without touching the system.
class System_call_api_interface {
public:
    virtual ~System_call_api_interface() = default;

    // The command the next fork's child will execute, told just before fork. The system
    // has no use for it; a substitute that plans instead of forking never sees the child's
    // execve, and learns the command here.
    virtual void announce_child(const char* path, char* const argv[], char* const envp[])
    {
        (void)path;
        (void)argv;
        (void)envp;
    }

    virtual int stat(const char* path, struct stat* buffer) = 0;
    virtual pid_t fork() = 0;
    virtual pid_t waitpid(pid_t pid, int* status, int options) = 0;
    virtual int execve(const char* path, char* const argv[], char* const envp[]) = 0;
    virtual int remove(const char* path) = 0;
    virtual int socket(int domain, int type, int protocol) = 0;
    virtual int unlink(const char* path) = 0;
    virtual int bind(int descriptor, const sockaddr* address, socklen_t length) = 0;
    virtual ssize_t recvmsg(int descriptor, msghdr* message, int flags) = 0;
    // Fails with -1 and EINVAL for a pid that is not positive: 0 and negative pids name
    // process groups, and a supervisor must never signal more than its own child.
    virtual int kill(pid_t pid, int signal) = 0;
    virtual int sigaction(int signal, const struct sigaction* action, struct sigaction* old_action) = 0;
    virtual int sd_notify(int unset_environment, const char* state) = 0;
    virtual int open(const char* path, int flags) = 0;
    virtual int close(int descriptor) = 0;
    // The caller owns the returned thread: it joins and deletes it.
    virtual std::thread* create_thread(void* (*function)(void*), void* argument) = 0;
    virtual void startup_runtime() = 0;
    virtual void shutdown_runtime() = 0;
    virtual int system(const std::string& command) = 0;
    virtual std::string get_quiet_file_path() = 0;
    virtual std::string get_hostname() = 0;
};

#endif

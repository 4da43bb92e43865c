// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_PROCESS_SYSTEM_CALL_API_HPP
#define STRATA_PROCESS_SYSTEM_CALL_API_HPP

#include "process/system_call_api_interface.hpp"

class System_call_api final : public System_call_api_interface {
public:
    int stat(const char* path, struct stat* buffer) override;
    pid_t fork() override;
    pid_t waitpid(pid_t pid, int* status, int options) override;
    int execve(const char* path, char* const argv[], char* const envp[]) override;
    int remove(const char* path) override;
    int socket(int domain, int type, int protocol) override;
    int unlink(const char* path) override;
    int bind(int descriptor, const sockaddr* address, socklen_t length) override;
    ssize_t recvmsg(int descriptor, msghdr* message, int flags) override;
    int kill(pid_t pid, int signal) override;
    int sigaction(int signal, const struct sigaction* action, struct sigaction* old_action) override;
    int sd_notify(int unset_environment, const char* state) override;
    int open(const char* path, int flags) override;
    int close(int descriptor) override;
    std::thread* create_thread(void* (*function)(void*), void* argument) override;
    void startup_runtime() override;
    void shutdown_runtime() override;
    int system(const std::string& command) override;
    std::string get_quiet_file_path() override;
    std::string get_hostname() override;
};

#endif

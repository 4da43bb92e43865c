// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_RECORDING_SYSTEM_CALL_API_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_RECORDING_SYSTEM_CALL_API_HPP

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "process/system_call_api_interface.hpp"
#include "tools/launcher_plan/launch_plan.hpp"

// The system as a plan sees it: every call that would act (fork, exec, socket, bind,
// signal, remove, write, shell command) is written into the plan and answered as if it
// had worked; only reads reach the real system, below `root` when one is given. Children
// exist in name only: each planned pid "ends" when the launcher first sends it a signal
// other than the probe 0, as a daemon that obeys its stop request does.
class Recording_system_call_api : public System_call_api_interface {
public:
    // `system` serves the reads and the host name; `plan` receives the record. Both must
    // outlive this object.
    Recording_system_call_api(System_call_api_interface& system, std::string root, Launch_plan& plan);
    ~Recording_system_call_api() override;
    Recording_system_call_api(const Recording_system_call_api&) = delete;
    Recording_system_call_api& operator=(const Recording_system_call_api&) = delete;

    // Answers get_hostname with this name instead of the machine's.
    void set_hostname(const std::string& name);

    void announce_child(const char* path, char* const argv[], char* const envp[]) override;
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

    // Descriptors handed out start here: far above anything the process has open, so that
    // a direct close(2) of one of them can never hit a real descriptor.
    static constexpr int first_descriptor = 100000;
    static constexpr pid_t first_pid = 1001;

private:
    struct Waiter {
        void* (*function)(void*);
        void* argument;
    };

    bool exists(const std::string& path, struct stat* buffer);
    Planned_daemon* daemon_for(pid_t pid);

    System_call_api_interface& system_api;
    std::string root;
    Launch_plan& plan;
    bool hostname_given{false};
    std::string hostname;

    std::mutex mutex;
    pid_t next_pid{first_pid};
    int next_descriptor{first_descriptor};
    pid_t last_pid{-1};
    std::set<pid_t> running;
    std::map<pid_t, int> end_signal;
    std::map<pid_t, Waiter> waiters;
    std::map<int, std::string> bound;
    std::set<int> answered;
};

#endif

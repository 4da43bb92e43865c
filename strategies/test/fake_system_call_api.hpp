#ifndef STRATA_STRATEGIES_TEST_FAKE_SYSTEM_CALL_API_HPP
#define STRATA_STRATEGIES_TEST_FAKE_SYSTEM_CALL_API_HPP

#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "process/system_call_api_interface.hpp"

// A working stand-in for the operating system that records what the strategies ask of
// it. Forked children are simulated: each lives until SIGKILL, SIGTERM (unless told to
// ignore it) or the test ends it, and its waiter in waitpid is released at that moment.
class Fake_system_call_api : public System_call_api_interface {
public:
    struct Signal_sent {
        pid_t pid;
        int signal;
        bool operator==(const Signal_sent& other) const { return pid == other.pid && signal == other.signal; }
    };

    struct Exec_call {
        std::string path;
        std::vector<std::string> argv;
        std::vector<std::string> envp;
    };

    ~Fake_system_call_api() override;

    // --- set-up ---
    void add_existing_path(const std::string& path);
    // The n-th fork (counting from 1) fails with -1.
    void fail_fork(int call_number);
    // The n-th fork returns 0, so the factory takes the child's path and hands its
    // argument vector and environment to execve, where they are recorded.
    void fork_as_child(int call_number);
    void fail_bind();
    // Every receive delivers this datagram; empty means nothing ever arrives.
    void set_datagram(const std::string& text);
    void ignore_termination(pid_t pid);
    // The child survives this many signal-0 probes after SIGTERM, then exits.
    void exit_after_probes(pid_t pid, int probes);
    void set_quiet_file_path(const std::string& path);
    void set_hostname(const std::string& name);

    // --- control ---
    void end_child(pid_t pid);
    // Ends every simulated child so that the factories' waiting threads finish.
    void end_all_children();

    // --- what happened ---
    std::vector<pid_t> forked_pids() const;
    int fork_count() const;
    std::vector<Exec_call> execs() const;
    std::vector<Signal_sent> signals() const;
    std::vector<Signal_sent> signals_to(pid_t pid) const;
    std::vector<std::string> commands() const;
    std::vector<std::string> stat_paths() const;
    std::vector<std::string> bound_paths() const;
    int receive_attempts() const;
    bool alive(pid_t pid) const;

    static constexpr pid_t first_pid = 4101;

    // --- System_call_api_interface ---
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

private:
    struct Child {
        bool alive{true};
        int exit_status{0};
        bool ignores_termination{false};
        int probes_left{-1};
    };
    void end_locked(pid_t pid, int status);

    mutable std::mutex mutex;
    std::condition_variable child_ended;
    std::set<std::string> existing_paths;
    std::set<int> failing_forks;
    std::set<int> child_forks;
    std::vector<Exec_call> exec_calls;
    bool bind_fails{false};
    std::string datagram;
    std::map<pid_t, Child> children;
    std::set<pid_t> term_ignorers;
    std::map<pid_t, int> probes_before_exit;
    int fork_calls{0};
    pid_t next_pid{first_pid};
    std::vector<pid_t> forked;
    std::vector<Signal_sent> sent;
    std::vector<std::string> system_commands;
    std::vector<std::string> stat_calls;
    std::vector<std::string> bind_calls;
    int receives{0};
    int next_descriptor{900000};
    std::string quiet_file_path{"/nonexistent/quiet"};
    std::string hostname{"vm_adaptive"};
};

#endif

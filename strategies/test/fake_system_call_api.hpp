#ifndef STRATA_STRATEGIES_TEST_FAKE_SYSTEM_CALL_API_HPP
#define STRATA_STRATEGIES_TEST_FAKE_SYSTEM_CALL_API_HPP

#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "process/system_call_api_interface.hpp"

// The operating system as the strategies see it, recording what they ask of it. Forked
// children are simulated: each lives until SIGKILL, SIGTERM (unless told to ignore it), a
// number of signal-0 probes, or the test ends it; its waiter in waitpid is then released.
// Signals to pids it never handed out fail like signals to processes that are gone.
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

    ~Fake_system_call_api() override { end_all_children(); }

    // --- set-up: the n-th fork (from 1) fails, or returns 0 so that execve is recorded
    void fail_fork(int call_number) { locked([&] { failing_forks.insert(call_number); }); }
    void fork_as_child(int call_number) { locked([&] { child_forks.insert(call_number); }); }
    void fail_bind() { locked([&] { bind_fails = true; }); }
    // Every receive delivers this datagram; empty means nothing ever arrives.
    void set_datagram(const std::string& text) { locked([&] { datagram = text; }); }
    void add_existing_path(const std::string& path) { locked([&] { existing_paths.insert(path); }); }
    void set_quiet_file_path(const std::string& path) { locked([&] { quiet_file_path = path; }); }
    void ignore_termination(pid_t pid) { locked([&] { children[pid].probes_left = -1, ignorers.insert(pid); }); }
    // Ignores SIGTERM and survives this many signal-0 probes.
    void exit_after_probes(pid_t pid, int probes)
    {
        locked([&] { ignorers.insert(pid), children[pid].probes_left = probes; });
    }
    void end_child(pid_t pid) { locked([&] { end(pid); }); }
    void end_all_children()
    {
        locked([&] {
            for (auto& entry : children) {
                end(entry.first);
            }
        });
    }

    // --- what happened
    std::vector<pid_t> forked_pids() const { return copy(forked); }
    int fork_count() const { return copy(fork_calls); }
    std::vector<Exec_call> execs() const { return copy(exec_calls); }
    std::vector<Signal_sent> signals() const { return copy(sent); }
    std::vector<Signal_sent> signals_to(pid_t pid) const
    {
        std::vector<Signal_sent> result = signals();
        result.erase(std::remove_if(result.begin(), result.end(), [pid](const Signal_sent& s) { return s.pid != pid; }),
                     result.end());
        return result;
    }
    std::vector<std::string> commands() const { return copy(system_commands); }
    std::vector<std::string> stat_paths() const { return copy(stat_calls); }
    std::vector<std::string> bound_paths() const { return copy(bind_calls); }
    int receive_attempts() const { return copy(receives); }
    bool alive(pid_t pid) const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return children.count(pid) != 0 && children.at(pid).alive;
    }

    // --- System_call_api_interface
    int stat(const char* path, struct stat* buffer) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        stat_calls.emplace_back(path);
        *buffer = {};
        return existing_paths.count(path) != 0 ? 0 : (errno = ENOENT, -1);
    }
    pid_t fork() override
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++fork_calls;
        if (failing_forks.count(fork_calls) != 0) {
            return errno = EAGAIN, -1;
        }
        if (child_forks.count(fork_calls) != 0) {
            return 0;
        }
        const pid_t pid = 4101 + static_cast<pid_t>(forked.size());
        children[pid].alive = true;
        forked.push_back(pid);
        return pid;
    }
    pid_t waitpid(pid_t pid, int* status, int) override
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (children.count(pid) == 0) {
            return errno = ECHILD, -1;
        }
        child_ended.wait(lock, [&] { return !children[pid].alive; });
        *status = 0;
        return pid;
    }
    int execve(const char* path, char* const argv[], char* const envp[]) override
    {
        Exec_call call{path, {}, {}};
        for (; *argv != nullptr; ++argv) {
            call.argv.emplace_back(*argv);
        }
        for (; *envp != nullptr; ++envp) {
            call.envp.emplace_back(*envp);
        }
        locked([&] { exec_calls.push_back(std::move(call)); });
        return errno = ENOENT, -1;
    }
    int remove(const char*) override { return 0; }
    // Far above any descriptor the test process holds: the handler closes it directly.
    int socket(int, int, int) override { return 900000; }
    int unlink(const char*) override { return 0; }
    int bind(int, const sockaddr* address, socklen_t) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        bind_calls.emplace_back(reinterpret_cast<const sockaddr_un*>(address)->sun_path);
        return bind_fails ? (errno = EADDRINUSE, -1) : 0;
    }
    ssize_t recvmsg(int, msghdr* message, int) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        ++receives;
        if (datagram.empty()) {
            return errno = EAGAIN, -1;
        }
        std::memcpy(message->msg_iov[0].iov_base, datagram.data(), std::min(datagram.size(), message->msg_iov[0].iov_len));
        return static_cast<ssize_t>(datagram.size());
    }
    int kill(pid_t pid, int signal) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        sent.push_back(Signal_sent{pid, signal});
        if (children.count(pid) == 0 || !children[pid].alive) {
            return errno = ESRCH, -1;
        }
        Child& child = children[pid];
        if (signal == SIGKILL || (signal == SIGTERM && ignorers.count(pid) == 0) ||
            (signal == 0 && child.probes_left >= 0 && --child.probes_left < 0)) {
            end(pid);
        }
        return 0;
    }
    int sigaction(int, const struct sigaction*, struct sigaction*) override { return 0; }
    int sd_notify(int, const char*) override { return 1; }
    int open(const char*, int) override { return errno = ENOENT, -1; }
    int close(int) override { return 0; }
    std::thread* create_thread(void* (*function)(void*), void* argument) override
    {
        return new std::thread(function, argument);
    }
    void startup_runtime() override {}
    void shutdown_runtime() override {}
    int system(const std::string& command) override
    {
        locked([&] { system_commands.push_back(command); });
        return 0;
    }
    std::string get_quiet_file_path() override { return copy(quiet_file_path); }
    std::string get_hostname() override { return "vm_adaptive"; }

private:
    struct Child {
        bool alive{false};
        int probes_left{-1};
    };
    template <typename Action>
    void locked(Action action)
    {
        std::lock_guard<std::mutex> lock(mutex);
        action();
    }
    template <typename Value>
    Value copy(const Value& value) const
    {
        std::lock_guard<std::mutex> lock(mutex);
        return value;
    }
    void end(pid_t pid)
    {
        children[pid].alive = false;
        child_ended.notify_all();
    }

    mutable std::mutex mutex;
    std::condition_variable child_ended;
    std::set<std::string> existing_paths;
    std::set<int> failing_forks;
    std::set<int> child_forks;
    std::set<pid_t> ignorers;
    std::map<pid_t, Child> children;
    std::vector<Exec_call> exec_calls;
    std::vector<pid_t> forked;
    std::vector<Signal_sent> sent;
    std::vector<std::string> system_commands;
    std::vector<std::string> stat_calls;
    std::vector<std::string> bind_calls;
    std::string datagram;
    std::string quiet_file_path{"/nonexistent/quiet"};
    bool bind_fails{false};
    int fork_calls{0};
    int receives{0};
};

#endif

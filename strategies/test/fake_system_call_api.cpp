#include "strategies/test/fake_system_call_api.hpp"

#include <sys/un.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

Fake_system_call_api::~Fake_system_call_api()
{
    end_all_children();
}

void Fake_system_call_api::add_existing_path(const std::string& path)
{
    std::lock_guard<std::mutex> lock(mutex);
    existing_paths.insert(path);
}

void Fake_system_call_api::fail_fork(int call_number)
{
    std::lock_guard<std::mutex> lock(mutex);
    failing_forks.insert(call_number);
}

void Fake_system_call_api::fork_as_child(int call_number)
{
    std::lock_guard<std::mutex> lock(mutex);
    child_forks.insert(call_number);
}

void Fake_system_call_api::fail_bind()
{
    std::lock_guard<std::mutex> lock(mutex);
    bind_fails = true;
}

void Fake_system_call_api::set_datagram(const std::string& text)
{
    std::lock_guard<std::mutex> lock(mutex);
    datagram = text;
}

void Fake_system_call_api::ignore_termination(pid_t pid)
{
    std::lock_guard<std::mutex> lock(mutex);
    term_ignorers.insert(pid);
}

void Fake_system_call_api::exit_after_probes(pid_t pid, int probes)
{
    std::lock_guard<std::mutex> lock(mutex);
    term_ignorers.insert(pid);
    probes_before_exit[pid] = probes;
}

void Fake_system_call_api::set_quiet_file_path(const std::string& path)
{
    std::lock_guard<std::mutex> lock(mutex);
    quiet_file_path = path;
}

void Fake_system_call_api::set_hostname(const std::string& name)
{
    std::lock_guard<std::mutex> lock(mutex);
    hostname = name;
}

void Fake_system_call_api::end_child(pid_t pid)
{
    std::lock_guard<std::mutex> lock(mutex);
    end_locked(pid, 0);
}

void Fake_system_call_api::end_all_children()
{
    std::lock_guard<std::mutex> lock(mutex);
    for (auto& entry : children) {
        end_locked(entry.first, 0);
    }
}

void Fake_system_call_api::end_locked(pid_t pid, int status)
{
    auto child = children.find(pid);
    if (child == children.end() || !child->second.alive) {
        return;
    }
    child->second.alive = false;
    child->second.exit_status = status;
    child_ended.notify_all();
}

std::vector<pid_t> Fake_system_call_api::forked_pids() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return forked;
}

int Fake_system_call_api::fork_count() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return fork_calls;
}

std::vector<Fake_system_call_api::Exec_call> Fake_system_call_api::execs() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return exec_calls;
}

std::vector<Fake_system_call_api::Signal_sent> Fake_system_call_api::signals() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return sent;
}

std::vector<Fake_system_call_api::Signal_sent> Fake_system_call_api::signals_to(pid_t pid) const
{
    std::lock_guard<std::mutex> lock(mutex);
    std::vector<Signal_sent> result;
    std::copy_if(sent.begin(), sent.end(), std::back_inserter(result),
                 [pid](const Signal_sent& signal) { return signal.pid == pid; });
    return result;
}

std::vector<std::string> Fake_system_call_api::commands() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return system_commands;
}

std::vector<std::string> Fake_system_call_api::stat_paths() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return stat_calls;
}

std::vector<std::string> Fake_system_call_api::bound_paths() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return bind_calls;
}

int Fake_system_call_api::receive_attempts() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return receives;
}

bool Fake_system_call_api::alive(pid_t pid) const
{
    std::lock_guard<std::mutex> lock(mutex);
    auto child = children.find(pid);
    return child != children.end() && child->second.alive;
}

int Fake_system_call_api::stat(const char* path, struct stat* buffer)
{
    std::lock_guard<std::mutex> lock(mutex);
    stat_calls.emplace_back(path);
    if (existing_paths.count(path) == 0) {
        errno = ENOENT;
        return -1;
    }
    *buffer = {};
    return 0;
}

pid_t Fake_system_call_api::fork()
{
    std::lock_guard<std::mutex> lock(mutex);
    ++fork_calls;
    if (failing_forks.count(fork_calls) != 0) {
        errno = EAGAIN;
        return -1;
    }
    if (child_forks.count(fork_calls) != 0) {
        return 0;
    }
    const pid_t pid = next_pid++;
    children[pid] = Child{};
    forked.push_back(pid);
    return pid;
}

pid_t Fake_system_call_api::waitpid(pid_t pid, int* status, int options)
{
    (void)options;
    std::unique_lock<std::mutex> lock(mutex);
    auto child = children.find(pid);
    if (child == children.end()) {
        errno = ECHILD;
        return -1;
    }
    child_ended.wait(lock, [&child] { return !child->second.alive; });
    *status = child->second.exit_status;
    return pid;
}

int Fake_system_call_api::execve(const char* path, char* const argv[], char* const envp[])
{
    Exec_call call{path, {}, {}};
    for (char* const* argument = argv; *argument != nullptr; ++argument) {
        call.argv.emplace_back(*argument);
    }
    for (char* const* entry = envp; *entry != nullptr; ++entry) {
        call.envp.emplace_back(*entry);
    }
    std::lock_guard<std::mutex> lock(mutex);
    exec_calls.push_back(std::move(call));
    errno = ENOENT;
    return -1;
}

int Fake_system_call_api::remove(const char* path)
{
    (void)path;
    return 0;
}

int Fake_system_call_api::socket(int domain, int type, int protocol)
{
    (void)domain;
    (void)type;
    (void)protocol;
    std::lock_guard<std::mutex> lock(mutex);
    // Far above any descriptor the test process holds: the handler closes it directly.
    return next_descriptor++;
}

int Fake_system_call_api::unlink(const char* path)
{
    (void)path;
    return 0;
}

int Fake_system_call_api::bind(int descriptor, const sockaddr* address, socklen_t length)
{
    (void)descriptor;
    (void)length;
    std::lock_guard<std::mutex> lock(mutex);
    bind_calls.emplace_back(reinterpret_cast<const sockaddr_un*>(address)->sun_path);
    if (bind_fails) {
        errno = EADDRINUSE;
        return -1;
    }
    return 0;
}

ssize_t Fake_system_call_api::recvmsg(int descriptor, msghdr* message, int flags)
{
    (void)descriptor;
    (void)flags;
    std::lock_guard<std::mutex> lock(mutex);
    ++receives;
    if (datagram.empty() || message->msg_iovlen == 0) {
        errno = EAGAIN;
        return -1;
    }
    const std::size_t length = std::min(datagram.size(), message->msg_iov[0].iov_len);
    std::memcpy(message->msg_iov[0].iov_base, datagram.data(), length);
    return static_cast<ssize_t>(datagram.size());
}

int Fake_system_call_api::kill(pid_t pid, int signal)
{
    std::lock_guard<std::mutex> lock(mutex);
    sent.push_back(Signal_sent{pid, signal});
    if (pid <= 0) {
        errno = EINVAL;
        return -1;
    }
    auto child = children.find(pid);
    if (child == children.end() || !child->second.alive) {
        errno = ESRCH;
        return -1;
    }
    if (signal == SIGKILL) {
        end_locked(pid, SIGKILL);
    } else if (signal == SIGTERM && term_ignorers.count(pid) == 0) {
        end_locked(pid, SIGTERM);
    } else if (signal == 0) {
        auto probes = probes_before_exit.find(pid);
        if (probes != probes_before_exit.end() && --probes->second < 0) {
            end_locked(pid, 0);
        }
    }
    return 0;
}

int Fake_system_call_api::sigaction(int signal, const struct sigaction* action, struct sigaction* old_action)
{
    (void)signal;
    (void)action;
    (void)old_action;
    return 0;
}

int Fake_system_call_api::sd_notify(int unset_environment, const char* state)
{
    (void)unset_environment;
    (void)state;
    return 1;
}

int Fake_system_call_api::open(const char* path, int flags)
{
    (void)path;
    (void)flags;
    errno = ENOENT;
    return -1;
}

int Fake_system_call_api::close(int descriptor)
{
    (void)descriptor;
    return 0;
}

std::thread* Fake_system_call_api::create_thread(void* (*function)(void*), void* argument)
{
    return new std::thread(function, argument);
}

void Fake_system_call_api::startup_runtime() {}

void Fake_system_call_api::shutdown_runtime() {}

int Fake_system_call_api::system(const std::string& command)
{
    std::lock_guard<std::mutex> lock(mutex);
    system_commands.push_back(command);
    return 0;
}

std::string Fake_system_call_api::get_quiet_file_path()
{
    std::lock_guard<std::mutex> lock(mutex);
    return quiet_file_path;
}

std::string Fake_system_call_api::get_hostname()
{
    std::lock_guard<std::mutex> lock(mutex);
    return hostname;
}

// SPDX-License-Identifier: Apache-2.0
#include "tools/launcher_plan/recording_system_call_api.hpp"

#include <fcntl.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace {

const std::string notify_prefix{"NOTIFY_SOCKET="};
const char ready_datagram[] = "READY=1";

std::vector<std::string> strings_of(char* const list[])
{
    std::vector<std::string> strings;
    for (std::size_t index = 0; list != nullptr && list[index] != nullptr; ++index) {
        strings.emplace_back(list[index]);
    }
    return strings;
}

bool writes(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0;
}

}  // namespace

Recording_system_call_api::Recording_system_call_api(System_call_api_interface& system, std::string root_directory,
                                                     Launch_plan& launch_plan)
    : system_api(system), root(std::move(root_directory)), plan(launch_plan)
{
}

Recording_system_call_api::~Recording_system_call_api() = default;

void Recording_system_call_api::set_hostname(const std::string& name)
{
    hostname_given = true;
    hostname = name;
}

void Recording_system_call_api::announce_child(const char* path, char* const argv[], char* const envp[])
{
    Planned_daemon daemon;
    daemon.path = path;
    daemon.argv = strings_of(argv);
    daemon.envp = strings_of(envp);
    for (const std::string& variable : daemon.envp) {
        if (variable.rfind(notify_prefix, 0) == 0) {
            daemon.readiness_socket = variable.substr(notify_prefix.size());
        }
    }
    const std::lock_guard<std::mutex> lock(mutex);
    plan.daemons.push_back(std::move(daemon));
}

bool Recording_system_call_api::exists(const std::string& path, struct stat* buffer)
{
    struct stat ignored {};
    const int result = system_api.stat((root + path).c_str(), buffer == nullptr ? &ignored : buffer);
    const int error = errno;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        plan.reads.push_back(Planned_read{path, "file", result == 0, {}});
    }
    errno = error;
    return result == 0;
}

int Recording_system_call_api::stat(const char* path, struct stat* buffer)
{
    return exists(path, buffer) ? 0 : -1;
}

pid_t Recording_system_call_api::fork()
{
    const std::lock_guard<std::mutex> lock(mutex);
    const pid_t pid = next_pid++;
    running.insert(pid);
    last_pid = pid;
    // The child announced last is the one this fork would have run.
    for (auto daemon = plan.daemons.rbegin(); daemon != plan.daemons.rend(); ++daemon) {
        if (daemon->planned_pid == -1) {
            daemon->planned_pid = pid;
            break;
        }
    }
    return pid;
}

pid_t Recording_system_call_api::waitpid(pid_t pid, int* status, int options)
{
    (void)options;
    const std::lock_guard<std::mutex> lock(mutex);
    const auto ended = end_signal.find(pid);
    if (ended == end_signal.end()) {
        errno = ECHILD;
        return -1;
    }
    if (status != nullptr) {
        *status = ended->second & 0x7f;
    }
    end_signal.erase(ended);
    return pid;
}

int Recording_system_call_api::execve(const char* path, char* const argv[], char* const envp[])
{
    // Never reached: fork never answers as the child.
    (void)path;
    (void)argv;
    (void)envp;
    errno = ENOSYS;
    return -1;
}

int Recording_system_call_api::remove(const char* path)
{
    const std::lock_guard<std::mutex> lock(mutex);
    plan.removed_paths.emplace_back(path);
    return 0;
}

int Recording_system_call_api::socket(int domain, int type, int protocol)
{
    (void)domain;
    (void)type;
    (void)protocol;
    const std::lock_guard<std::mutex> lock(mutex);
    return next_descriptor++;
}

int Recording_system_call_api::unlink(const char* path)
{
    return remove(path);
}

int Recording_system_call_api::bind(int descriptor, const sockaddr* address, socklen_t length)
{
    std::string path;
    if (address != nullptr && address->sa_family == AF_UNIX && length > offsetof(sockaddr_un, sun_path)) {
        const auto* unix_address = reinterpret_cast<const sockaddr_un*>(address);
        path.assign(unix_address->sun_path, ::strnlen(unix_address->sun_path, sizeof(unix_address->sun_path)));
    }
    const std::lock_guard<std::mutex> lock(mutex);
    bound[descriptor] = path;
    plan.bound_sockets.push_back(path);
    return 0;
}

// The first receive on a bound socket gets "READY=1" at once: readiness is planned, not
// awaited. The socket it was awaited on is marked in the plan.
ssize_t Recording_system_call_api::recvmsg(int descriptor, msghdr* message, int flags)
{
    (void)flags;
    const std::lock_guard<std::mutex> lock(mutex);
    const auto socket = bound.find(descriptor);
    if (socket == bound.end() || answered.count(descriptor) != 0 || message == nullptr || message->msg_iovlen == 0 ||
        message->msg_iov[0].iov_len < sizeof(ready_datagram) - 1) {
        errno = EAGAIN;
        return -1;
    }
    answered.insert(descriptor);
    for (Planned_daemon& daemon : plan.daemons) {
        if (daemon.readiness_socket == socket->second) {
            daemon.readiness_awaited = true;
        }
    }
    std::memcpy(message->msg_iov[0].iov_base, ready_datagram, sizeof(ready_datagram) - 1);
    return static_cast<ssize_t>(sizeof(ready_datagram) - 1);
}

int Recording_system_call_api::kill(pid_t pid, int signal)
{
    Waiter waiter{nullptr, nullptr};
    bool delivered = false;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        delivered = pid > 0 && running.count(pid) != 0;
        plan.stop_signals.push_back(Planned_signal{pid, signal, delivered});
        if (delivered && signal != 0) {
            running.erase(pid);
            end_signal[pid] = signal;
            const auto found = waiters.find(pid);
            if (found != waiters.end()) {
                waiter = found->second;
                waiters.erase(found);
            }
        }
    }
    // The child's waiting thread would wake up now; it runs here, on the caller's thread.
    if (waiter.function != nullptr) {
        (void)waiter.function(waiter.argument);
    }
    if (!delivered) {
        errno = pid > 0 ? ESRCH : EINVAL;
        return -1;
    }
    return 0;
}

int Recording_system_call_api::sigaction(int signal, const struct sigaction* action, struct sigaction* old_action)
{
    (void)signal;
    (void)action;
    if (old_action != nullptr) {
        *old_action = {};
    }
    return 0;
}

int Recording_system_call_api::sd_notify(int unset_environment, const char* state)
{
    (void)unset_environment;
    (void)state;
    return 0;
}

int Recording_system_call_api::open(const char* path, int flags)
{
    if (writes(flags)) {
        const std::lock_guard<std::mutex> lock(mutex);
        plan.written_files.emplace_back(path);
        return next_descriptor++;
    }
    // Existence is all a read-only open tells the launcher; a device such as the watchdog
    // must not even be opened, since opening it arms it.
    if (!exists(path, nullptr)) {
        return -1;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    return next_descriptor++;
}

int Recording_system_call_api::close(int descriptor)
{
    if (descriptor < first_descriptor) {
        errno = EBADF;
        return -1;
    }
    return 0;
}

// No thread: the waiting function runs when the child "ends", inside kill.
std::thread* Recording_system_call_api::create_thread(void* (*function)(void*), void* argument)
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (last_pid != -1) {
        waiters[last_pid] = Waiter{function, argument};
    }
    return new std::thread();
}

void Recording_system_call_api::startup_runtime() {}

void Recording_system_call_api::shutdown_runtime() {}

int Recording_system_call_api::system(const std::string& command)
{
    const std::lock_guard<std::mutex> lock(mutex);
    plan.commands.push_back(command);
    return 0;
}

// The launcher writes the console attribute through a stream of its own; an empty path
// makes that stream fail to open, so nothing is written, and the plan notes the file.
std::string Recording_system_call_api::get_quiet_file_path()
{
    const std::string path = system_api.get_quiet_file_path();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        plan.written_files.push_back(path);
    }
    (void)exists(path, nullptr);
    return "";
}

std::string Recording_system_call_api::get_hostname()
{
    return hostname_given ? hostname : system_api.get_hostname();
}

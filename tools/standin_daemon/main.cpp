// SPDX-License-Identifier: Apache-2.0
// Plays any platform daemon for rehearsals of a partition: it behaves as its control
// file says and records what the launcher did to it.
#include <dirent.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include "tools/standin_daemon/standin_control.hpp"
#include "tools/standin_daemon/standin_record.hpp"

extern char** environ;

namespace {

constexpr const char* default_control_dir = "/run/strata-standin";

std::string executable_name(const char* argv0)
{
    const std::string path = argv0 != nullptr ? argv0 : "strata-standin";
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string control_dir()
{
    const char* dir = std::getenv("STANDIN_CONTROL_DIR");
    return dir != nullptr && *dir != '\0' ? dir : default_control_dir;
}

void record_start(Standin_record& record, int argc, char** argv)
{
    record.timed_line("start", "");
    for (int i = 0; i < argc; ++i) {
        record.line("argv", argv[i]);
    }
    for (char** entry = environ; *entry != nullptr; ++entry) {
        record.line("env", *entry);
    }
    // What the launcher left set between fork and exec shows here.
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("SigBlk:", 0) == 0 || line.rfind("SigIgn:", 0) == 0) {
            record.line("mask", line);
        }
    }
}

// Every descriptor the daemon inherited beyond the standard three.
void record_descriptors(Standin_record& record)
{
    DIR* dir = ::opendir("/proc/self/fd");
    if (dir == nullptr) {
        return;
    }
    const int own = ::dirfd(dir);
    for (dirent* entry = ::readdir(dir); entry != nullptr; entry = ::readdir(dir)) {
        const int fd = std::atoi(entry->d_name);
        if (entry->d_name[0] == '.' || fd <= 2 || fd == own || fd == record.descriptor()) {
            continue;
        }
        char target[256] = {};
        const std::string link = std::string("/proc/self/fd/") + entry->d_name;
        const ssize_t length = ::readlink(link.c_str(), target, sizeof(target) - 1);
        record.line("fd", std::string(entry->d_name) + " " + (length > 0 ? std::string(target, length) : "?"));
    }
    (void)::closedir(dir);
}

void notify(Standin_record& record, const std::string& payload, const char* what)
{
    const char* socket_path = std::getenv("NOTIFY_SOCKET");
    if (socket_path == nullptr || socket_path[0] == '\0' || std::strcmp(socket_path, " ") == 0) {
        record.line("notify", std::string(what) + " no-socket");
        return;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socket_path, sizeof(address.sun_path) - 1);
    if (address.sun_path[0] == '@') {
        address.sun_path[0] = '\0';
    }
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const ssize_t sent = fd == -1 ? -1
                                  : ::sendto(fd, payload.data(), payload.size(), 0,
                                             reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int error = errno;
    if (fd != -1) {
        (void)::close(fd);
    }
    if (sent == -1) {
        record.line("notify", std::string(what) + " error " + std::strerror(error));
    } else {
        record.timed_line("notify", std::string(what) + " sent");
    }
}

int open_signal_descriptor(sigset_t& signals)
{
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2}) {
        sigaddset(&signals, signal);
    }
    (void)sigprocmask(SIG_BLOCK, &signals, nullptr);
    return ::signalfd(-1, &signals, SFD_CLOEXEC);
}

[[noreturn]] void die_by(int signal, Standin_record& record)
{
    record.timed_line("exit", "signal " + std::to_string(signal));
    std::signal(signal, SIG_DFL);
    sigset_t just_this;
    sigemptyset(&just_this);
    sigaddset(&just_this, signal);
    (void)sigprocmask(SIG_UNBLOCK, &just_this, nullptr);
    (void)::raise(signal);
    std::_Exit(128 + signal);
}

// Whether the signal ends the daemon.
bool handle_signal(int signal, pid_t sender, const Standin_control& control, Standin_record& record)
{
    record.timed_line("signal", std::to_string(signal));
    // Who signalled: the launcher, or a service manager that went around it.
    record.line("sender", std::to_string(sender));
    const bool terminating = signal == SIGTERM || signal == SIGINT || signal == SIGHUP || signal == SIGQUIT;
    if (terminating && control.ignore_term && (signal == SIGTERM || signal == SIGINT)) {
        record.line("ignored", std::to_string(signal));
        return false;
    }
    return terminating;
}

long remaining_ms(std::uint64_t start_ns, long after_ms)
{
    if (after_ms < 0) {
        return -1;
    }
    const std::uint64_t elapsed_ms = (Standin_record::monotonic_ns() - start_ns) / 1000000ULL;
    return elapsed_ms >= static_cast<std::uint64_t>(after_ms) ? 0 : after_ms - static_cast<long>(elapsed_ms);
}

long next_timeout(long ready_left, long exit_left)
{
    if (ready_left < 0) {
        return exit_left;
    }
    if (exit_left < 0) {
        return ready_left;
    }
    return ready_left < exit_left ? ready_left : exit_left;
}

int run(const Standin_control& control, Standin_record& record)
{
    sigset_t signals;
    const int signal_fd = open_signal_descriptor(signals);
    const std::uint64_t start_ns = Standin_record::monotonic_ns();
    if (!control.first_datagram.empty()) {
        notify(record, control.first_datagram, "first");
    }
    bool ready_sent = control.ready_after_ms == Standin_control::never;
    for (;;) {
        if (!ready_sent && remaining_ms(start_ns, control.ready_after_ms) == 0) {
            notify(record, control.ready_datagram, "ready");
            ready_sent = true;
        }
        const long exit_left = remaining_ms(start_ns, control.exit_after_ms);
        if (exit_left == 0) {
            record.timed_line("exit", "code " + std::to_string(control.exit_code));
            return control.exit_code;
        }
        const long ready_left = ready_sent ? -1 : remaining_ms(start_ns, control.ready_after_ms);
        pollfd waiting{signal_fd, POLLIN, 0};
        if (::poll(&waiting, 1, static_cast<int>(next_timeout(ready_left, exit_left))) <= 0) {
            continue;
        }
        signalfd_siginfo info{};
        if (::read(signal_fd, &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info)) &&
            handle_signal(static_cast<int>(info.ssi_signo), static_cast<pid_t>(info.ssi_pid), control, record)) {
            die_by(static_cast<int>(info.ssi_signo), record);
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string name = executable_name(argc > 0 ? argv[0] : nullptr);
    const std::string dir = control_dir();
    Standin_record record(dir + "/" + name + ".record");
    record_start(record, argc, argv);
    record_descriptors(record);

    Standin_control control;
    std::string error;
    if (!control.load(dir + "/" + name + ".conf", error)) {
        record.line("control-error", error);
        std::cerr << "strata-standin (" << name << "): " << dir << "/" << name << ".conf: " << error << std::endl;
        return 2;
    }
    return run(control, record);
}

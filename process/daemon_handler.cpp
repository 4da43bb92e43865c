// SPDX-License-Identifier: Apache-2.0
#include "process/daemon_handler.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <limits>

#include "common/silent_trace.hpp"
#include "support/error_line.hpp"

namespace {

constexpr std::size_t max_path_length = 107;
constexpr std::size_t receive_capacity = 4096;
constexpr std::uint64_t polls_per_second = 20;
constexpr long poll_interval_ns = 50L * 1000L * 1000L;
constexpr int termination_signal = 15;
constexpr int kill_signal = 9;
// How long the drain may miss a stop request whose wake-up could not be delivered.
constexpr int drain_check_ms = 250;

void console_line(const std::string& text)
{
    write_error_line(text);
}

void sleep_one_poll()
{
    timespec remaining{0, poll_interval_ns};
    while (::nanosleep(&remaining, &remaining) == -1 && errno == EINTR) {
    }
}

std::uint64_t poll_limit(std::uint64_t seconds)
{
    const std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    return seconds > most / polls_per_second ? most : seconds * polls_per_second;
}

}  // namespace

Daemon_handler::Daemon_handler(const std::string& notify_path, System_call_api_interface* system_call_api)
    : socket_path(notify_path), system_call(system_call_api)
{
    silent_trace("[Daemon_handler]: constructor called");
}

Daemon_handler::~Daemon_handler()
{
    silent_trace("[Daemon_handler]: destructor called");
    stop_draining();
    if (socket_descriptor != -1) {
        (void)::close(socket_descriptor);
    }
    if (system_call != nullptr) {
        (void)system_call->remove(bound_path().c_str());
    }
}

bool Daemon_handler::init_socket_for_notify()
{
    if (system_call == nullptr) {
        console_line("[Daemon_handler]: system_call is nullptr");
        return false;
    }
    silent_trace("[Daemon_handler]: init_socket_for_notify called");
    stop_draining();
    if (socket_descriptor != -1) {
        // A second initialisation must not leak the first socket.
        (void)system_call->close(socket_descriptor);
    }
    socket_descriptor = system_call->socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket_descriptor == -1) {
        console_line("[Daemon_handler]: socket error");
        return false;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = bound_path();
    std::memcpy(address.sun_path, path.data(), path.size());
    // A socket file left by an earlier run would make bind fail.
    (void)system_call->unlink(path.c_str());
    if (system_call->bind(socket_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == -1) {
        console_line("[Daemon_handler]: bind error");
        return false;
    }
    return true;
}

bool Daemon_handler::get_ready_child(std::uint64_t seconds)
{
    stop_draining();
    const bool usable = preconditions_hold();
    std::array<char, receive_capacity + 1> buffer{};
    iovec part{buffer.data(), receive_capacity};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    console_line("[Daemon_handler]:Started for waiting on child ready ...");

    const std::uint64_t limit = poll_limit(seconds);
    bool ready = false;
    for (std::uint64_t poll = 1; usable; ++poll) {
        if (receive_ready(socket_descriptor, message, buffer.data(), receive_capacity)) {
            ready = true;
            break;
        }
        if (limit < poll) {
            console_line("[Daemon_handler]: timeout reached for child_ready ");
            break;
        }
        sleep_one_poll();
    }
    console_line(std::string("[Daemon_handler]: get_child_ready =  ") + (ready ? "1" : "0"));
    if (ready) {
        start_draining();
    }
    return ready;
}

bool Daemon_handler::send_termination(pid_t pid)
{
    if (system_call == nullptr) {
        console_line("[Daemon_handler]: system_call is nullptr");
        return false;
    }
    // Deliberately no line end: the caller's next message completes this line.
    write_error_text("[Daemon_handler]: send_termination signal to the PID :" + std::to_string(pid));
    return system_call->kill(pid, termination_signal) == 0;
}

int Daemon_handler::send_kill(pid_t pid)
{
    if (system_call == nullptr) {
        console_line("[Daemon_handler]: system_call is nullptr");
        return 0;
    }
    silent_trace("[Daemon_handler]: send_kill signal to the PID :" + std::to_string(pid));
    return system_call->kill(pid, kill_signal);
}

void Daemon_handler::set_system_call(System_call_api_interface* new_system_call)
{
    stop_draining();
    system_call = new_system_call;
}

bool Daemon_handler::preconditions_hold()
{
    if (system_call == nullptr) {
        console_line("[Daemon_handler, get_ready_child]: system_call is nullptr");
        return false;
    }
    silent_trace("[Daemon_handler, get_ready_child]: get_ready_child called");
    if (socket_descriptor == -1) {
        console_line("[Daemon_handler, get_ready_child]: socket_descriptor is empty");
        return false;
    }
    return true;
}

bool Daemon_handler::receive_ready(int descriptor, msghdr& message, char* buffer, std::size_t capacity)
{
    const ssize_t length = system_call->recvmsg(descriptor, &message, MSG_DONTWAIT | MSG_TRUNC | MSG_CMSG_CLOEXEC);
    if (length == -1) {
        return false;
    }
    const std::string text(buffer);
    console_line("Daemon_handler: Getting message :" + text);
    if (text.find("READY=1") != std::string::npos) {
        console_line("[Daemon_handler]: get child_ready from " + socket_path);
        return true;
    }
    // With MSG_TRUNC the reported length is the datagram's, which may exceed the buffer.
    const std::size_t used = static_cast<std::size_t>(length) < capacity ? static_cast<std::size_t>(length) : capacity;
    std::memset(buffer, 0, used);
    return false;
}

// The file that bind creates: the path cut to what the socket address holds.
std::string Daemon_handler::bound_path() const
{
    return socket_path.substr(0, max_path_length);
}

void Daemon_handler::start_draining()
{
    if (drainer.joinable() || ::pipe2(wake_pipe, O_CLOEXEC) == -1) {
        return;
    }
    drainer = std::thread([this] { drain(); });
}

void Daemon_handler::stop_draining()
{
    if (!drainer.joinable()) {
        return;
    }
    drain_stopping.store(true);
    // Closing the write end wakes the poll with POLLHUP. Should the close fail, the drain
    // still sees the request at its next check, so the join below always ends.
    if (system_call->close(wake_pipe[1]) != 0) {
        console_line("[Daemon_handler]: wake-up of the readiness drain failed; it stops at its next check");
    }
    drainer.join();
    (void)system_call->close(wake_pipe[0]);
    wake_pipe[0] = -1;
    wake_pipe[1] = -1;
    drain_stopping.store(false);
}

// Reads and drops every notification until stopped. Nothing is logged: a watchdog
// keep-alive every second would flood the console.
void Daemon_handler::drain()
{
    std::array<char, receive_capacity> buffer{};
    iovec part{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    while (!drain_stopping.load()) {
        pollfd watched[2] = {{socket_descriptor, POLLIN, 0}, {wake_pipe[0], POLLIN, 0}};
        const int events = ::poll(watched, 2, drain_check_ms);
        if (events == 0 || (events == -1 && errno == EINTR)) {
            continue;
        }
        if (events == -1) {
            return;
        }
        if (watched[1].revents != 0 || (watched[0].revents & (POLLERR | POLLNVAL)) != 0) {
            return;
        }
        // Readable yet nothing to receive: not a socket this handler can read, so stop
        // rather than spin.
        bool received = false;
        while (system_call->recvmsg(socket_descriptor, &message, MSG_DONTWAIT | MSG_TRUNC | MSG_CMSG_CLOEXEC) != -1) {
            received = true;
        }
        if (!received) {
            return;
        }
    }
}

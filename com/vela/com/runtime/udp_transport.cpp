// SPDX-License-Identifier: Apache-2.0
// UDP sockets (discovery unicast and multicast, data) and the framing of datagrams
// into SOME/IP messages.
#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "vela/com/runtime/runtime_state.hpp"

namespace vela {
namespace com {
namespace runtime {

using someip::Message_header;

namespace {
constexpr std::size_t kMaxDatagram = 65536;
// A bounded batch per socket and poll round, so that a flood on one socket does not
// starve the others.
constexpr std::size_t kDatagramsPerRound = 64;
}  // namespace

void Runtime::receive(int fd, bool sd, bool multicast, Outbox& out)
{
    std::vector<std::uint8_t> buffer(kMaxDatagram);
    for (std::size_t batch = 0; batch < kDatagramsPerRound; ++batch) {
        sockaddr_storage source{};
        socklen_t source_length = sizeof source;
        const ssize_t size = ::recvfrom(fd, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr*>(&source), &source_length);
        if (size < 0) {
            return;
        }
        const Endpoint from = Endpoint::from_sockaddr(source);
        someip::Datagram_reader reader(buffer.data(), static_cast<std::size_t>(size));
        Message_header header;
        const std::uint8_t* payload = nullptr;
        std::size_t payload_size = 0;
        bool valid = true;
        while (valid && reader.next(header, payload, payload_size)) {
            valid = sd ? handle_sd_message(header, payload, payload_size, from, multicast, out)
                       : (handle_data(header, payload, payload_size, from, fd, out), true);
        }
        if (reader.malformed()) {
            Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                                       {"size", static_cast<std::size_t>(size)},
                                                       {"offset", reader.offset()},
                                                       {"reason", "header too short or length past the datagram"}});
        }
    }
}

void Runtime::send_datagram(int fd, const Endpoint& to, const std::vector<std::uint8_t>& bytes)
{
    if (fd < 0) {
        return;
    }
    sockaddr_storage address{};
    const socklen_t length = to.to_sockaddr(address);
    if (::sendto(fd, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&address), length) < 0) {
        Incident_log::report("send_failed", {{"peer", to.to_string()}, {"error", std::strerror(errno)}});
    }
}

namespace {
int open_udp(const Endpoint& local, bool reuse)
{
    const int fd = ::socket(local.v6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    const int one = 1;
    if (reuse) {
        (void)::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        (void)::setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &one, sizeof one);
    }
    sockaddr_storage address{};
    const socklen_t length = local.to_sockaddr(address);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0) {
        const int saved = errno;
        (void)::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

Endpoint bound_endpoint(int fd)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    (void)::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return Endpoint::from_sockaddr(address);
}

// Multicast leaves and loops back through the interface that owns the unicast address,
// so that several processes on one host (even on loopback alone) see each other.
bool join_group(int fd, int send_fd, const Endpoint& group, const Endpoint& unicast)
{
    const int one = 1;
    if (!group.v6) {
        ip_mreq request{};
        std::memcpy(&request.imr_multiaddr, group.address.data(), 4);
        std::memcpy(&request.imr_interface, unicast.address.data(), 4);
        in_addr interface_address{};
        std::memcpy(&interface_address, unicast.address.data(), 4);
        return ::setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0 &&
               ::setsockopt(send_fd, IPPROTO_IP, IP_MULTICAST_IF, &interface_address, sizeof interface_address) == 0 &&
               ::setsockopt(send_fd, IPPROTO_IP, IP_MULTICAST_LOOP, &one, sizeof one) == 0;
    }
    ipv6_mreq request{};
    std::memcpy(&request.ipv6mr_multiaddr, group.address.data(), 16);
    request.ipv6mr_interface = 0;
    return ::setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request) == 0 &&
           ::setsockopt(send_fd, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, &one, sizeof one) == 0;
}
}  // namespace

bool Runtime::open_network(Clock::time_point now)
{
    network_retry_ = now + kNetworkRetry;
    auto fail = [this](const char* step) {
        Incident_log::report("network_unavailable", {{"step", step},
                                                     {"unicast", deployment_.unicast},
                                                     {"sd_group", deployment_.sd_multicast},
                                                     {"error", std::strerror(errno)},
                                                     {"retry_ms", 1000}});
        close_network();
        return false;
    };
    if (!Endpoint::parse(deployment_.unicast, deployment_.sd_port, unicast_) ||
        !Endpoint::parse(deployment_.sd_multicast, deployment_.sd_port, sd_group_) || unicast_.v6 != sd_group_.v6) {
        errno = EINVAL;
        return fail("parse addresses");
    }
    sd_unicast_fd_ = open_udp(unicast_, true);
    if (sd_unicast_fd_ < 0) {
        return fail("bind discovery unicast socket");
    }
    sd_multicast_fd_ = open_udp(sd_group_, true);
    if (sd_multicast_fd_ < 0) {
        return fail("bind discovery multicast socket");
    }
    if (!join_group(sd_multicast_fd_, sd_unicast_fd_, sd_group_, unicast_)) {
        return fail("join discovery multicast group");
    }
    default_fd_ = open_data_socket(deployment_.port);
    if (default_fd_ < 0) {
        return fail("bind data socket");
    }
    for (auto& item : local_offers_) {
        item.second->fd = -1;
        item.second->announced = false;
        item.second->next_send = now + initial_delay();
    }
    for (auto& item : finds_) {
        item.second->repetitions = 0;
        item.second->next_send = now + initial_delay();
    }
    return true;
}

int Runtime::open_data_socket(std::uint16_t port)
{
    for (const auto& item : data_sockets_) {
        if (port != 0 && item.second.port == port) {
            return item.first;
        }
    }
    Endpoint local = unicast_;
    local.port = port;
    const int fd = open_udp(local, false);
    if (fd >= 0) {
        data_sockets_[fd] = bound_endpoint(fd);
    }
    return fd;
}

bool Runtime::open_offer_socket(Local_offer& offer, Clock::time_point now)
{
    if (now < offer.next_socket_try) {
        return false;
    }
    offer.fd = offer.service.port == 0 ? default_fd_ : open_data_socket(offer.service.port);
    if (offer.fd < 0) {
        offer.next_socket_try = now + kNetworkRetry;
        Incident_log::report("network_unavailable", {{"step", "bind service socket"},
                                                     {"service", hex16(offer.service.service_id)},
                                                     {"port", offer.service.port},
                                                     {"error", std::strerror(errno)},
                                                     {"retry_ms", 1000}});
        return false;
    }
    offer.endpoint = data_sockets_[offer.fd];
    return true;
}

void Runtime::close_network()
{
    for (int* fd : {&sd_unicast_fd_, &sd_multicast_fd_}) {
        if (*fd >= 0) {
            (void)::close(*fd);
            *fd = -1;
        }
    }
    for (const auto& item : data_sockets_) {
        (void)::close(item.first);
    }
    data_sockets_.clear();
    default_fd_ = -1;
    network_up_ = false;
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

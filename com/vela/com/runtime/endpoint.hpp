// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_ENDPOINT_HPP
#define VELA_COM_RUNTIME_ENDPOINT_HPP

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <string>
#include <tuple>

namespace vela {
namespace com {
namespace runtime {

// A UDP transport address, IPv4 or IPv6, as carried in endpoint options.
struct Endpoint {
    bool v6 = false;
    std::array<std::uint8_t, 16> address{};
    std::uint16_t port = 0;

    static bool parse(const std::string& text, std::uint16_t port, Endpoint& out);
    static Endpoint from_sockaddr(const sockaddr_storage& storage);
    socklen_t to_sockaddr(sockaddr_storage& storage) const;
    std::string address_string() const;
    std::string to_string() const;
    // Same address family and address; ports may differ.
    bool same_host(const Endpoint& other) const { return v6 == other.v6 && address == other.address; }

    friend bool operator==(const Endpoint& a, const Endpoint& b)
    {
        return std::tie(a.v6, a.address, a.port) == std::tie(b.v6, b.address, b.port);
    }
    friend bool operator!=(const Endpoint& a, const Endpoint& b) { return !(a == b); }
    friend bool operator<(const Endpoint& a, const Endpoint& b)
    {
        return std::tie(a.v6, a.address, a.port) < std::tie(b.v6, b.address, b.port);
    }
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/endpoint.hpp"

#include <arpa/inet.h>

#include <cstring>

namespace vela {
namespace com {
namespace runtime {

bool Endpoint::parse(const std::string& text, std::uint16_t port_number, Endpoint& out)
{
    Endpoint parsed;
    parsed.port = port_number;
    if (inet_pton(AF_INET, text.c_str(), parsed.address.data()) == 1) {
        out = parsed;
        return true;
    }
    parsed.v6 = true;
    if (inet_pton(AF_INET6, text.c_str(), parsed.address.data()) == 1) {
        out = parsed;
        return true;
    }
    return false;
}

Endpoint Endpoint::from_sockaddr(const sockaddr_storage& storage)
{
    Endpoint endpoint;
    if (storage.ss_family == AF_INET6) {
        const auto& in6 = reinterpret_cast<const sockaddr_in6&>(storage);
        endpoint.v6 = true;
        std::memcpy(endpoint.address.data(), &in6.sin6_addr, 16);
        endpoint.port = ntohs(in6.sin6_port);
    } else {
        const auto& in4 = reinterpret_cast<const sockaddr_in&>(storage);
        std::memcpy(endpoint.address.data(), &in4.sin_addr, 4);
        endpoint.port = ntohs(in4.sin_port);
    }
    return endpoint;
}

socklen_t Endpoint::to_sockaddr(sockaddr_storage& storage) const
{
    std::memset(&storage, 0, sizeof storage);
    if (v6) {
        auto& in6 = reinterpret_cast<sockaddr_in6&>(storage);
        in6.sin6_family = AF_INET6;
        std::memcpy(&in6.sin6_addr, address.data(), 16);
        in6.sin6_port = htons(port);
        return sizeof(sockaddr_in6);
    }
    auto& in4 = reinterpret_cast<sockaddr_in&>(storage);
    in4.sin_family = AF_INET;
    std::memcpy(&in4.sin_addr, address.data(), 4);
    in4.sin_port = htons(port);
    return sizeof(sockaddr_in);
}

std::string Endpoint::address_string() const
{
    char text[INET6_ADDRSTRLEN] = {};
    (void)inet_ntop(v6 ? AF_INET6 : AF_INET, address.data(), text, sizeof text);
    return text;
}

std::string Endpoint::to_string() const
{
    return (v6 ? "[" + address_string() + "]" : address_string()) + ":" + std::to_string(port);
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

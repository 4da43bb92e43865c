// SPDX-License-Identifier: Apache-2.0
#include "strategies/interface_address_source.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

bool Interface_address_source::read_ipv6_addresses(std::vector<Interface_address>& addresses)
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) == -1) {
        return false;
    }
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET6) {
            continue;
        }
        const auto* ipv6 = reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr);
        char text[INET6_ADDRSTRLEN] = {};
        if (::inet_ntop(AF_INET6, &ipv6->sin6_addr, text, sizeof(text)) == nullptr) {
            continue;
        }
        addresses.push_back(Interface_address{entry->ifa_name, text, ipv6->sin6_scope_id});
    }
    ::freeifaddrs(list);
    return true;
}

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_INTERFACE_ADDRESS_SOURCE_INTERFACE_HPP
#define STRATA_STRATEGIES_INTERFACE_ADDRESS_SOURCE_INTERFACE_HPP

#include <cstdint>
#include <string>
#include <vector>

// One IPv6 address of a network interface, already in text form.
struct Interface_address {
    std::string interface_name;
    std::string address;
    std::uint32_t scope_id{0};
};

// The IPv6 addresses of the host's interfaces. On the emulator the communication daemon's
// address is only known at run time, so the choice among them must be testable.
class Interface_address_source_interface {
public:
    virtual ~Interface_address_source_interface() = default;
    // Appends the IPv6 entries in the order the system lists them; false when the list
    // can't be obtained.
    virtual bool read_ipv6_addresses(std::vector<Interface_address>& addresses) = 0;
};

#endif

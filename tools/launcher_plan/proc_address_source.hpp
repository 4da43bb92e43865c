// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_PROC_ADDRESS_SOURCE_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_PROC_ADDRESS_SOURCE_HPP

#include <string>

#include "strategies/interface_address_source_interface.hpp"
#include "tools/launcher_plan/launch_plan.hpp"

// The IPv6 addresses of the interfaces, read from the kernel's address table file
// (/proc/net/if_inet6, below the image root) instead of a netlink socket: a plan opens no
// socket. Link-local addresses carry their interface index as scope, as getifaddrs gives it.
class Proc_address_source : public Interface_address_source_interface {
public:
    static const std::string table_path;

    // `plan` must outlive this object.
    Proc_address_source(std::string root, Launch_plan& plan);

    bool read_ipv6_addresses(std::vector<Interface_address>& addresses) override;

    // One line of the table; false for a line that is not one.
    static bool parse_line(const std::string& line, Interface_address& address);

private:
    std::string root;
    Launch_plan& plan;
};

#endif

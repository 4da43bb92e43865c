// SPDX-License-Identifier: Apache-2.0
#include "tools/launcher_plan/proc_address_source.hpp"

#include <fstream>
#include <sstream>
#include <utility>

const std::string Proc_address_source::table_path{"/proc/net/if_inet6"};

namespace {

constexpr unsigned long link_scope = 0x20;

// 32 hex digits become eight groups of four, then the usual shortening of the longest
// run of zero groups.
bool address_text(const std::string& digits, std::string& text)
{
    if (digits.size() != 32 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return false;
    }
    unsigned long groups[8];
    for (int group = 0; group < 8; ++group) {
        groups[group] = std::stoul(digits.substr(static_cast<std::size_t>(group) * 4, 4), nullptr, 16);
    }
    int best_start = -1;
    int best_length = 0;
    for (int start = 0; start < 8;) {
        int length = 0;
        while (start + length < 8 && groups[start + length] == 0) {
            ++length;
        }
        if (length > best_length && length > 1) {
            best_start = start;
            best_length = length;
        }
        start += length == 0 ? 1 : length;
    }
    std::ostringstream out;
    out << std::hex;
    for (int group = 0; group < 8; ++group) {
        if (group == best_start) {
            out << "::";
            group += best_length - 1;
            continue;
        }
        if (group != 0 && group != best_start + best_length) {
            out << ':';
        }
        out << groups[group];
    }
    text = out.str();
    return true;
}

}  // namespace

Proc_address_source::Proc_address_source(std::string root_directory, Launch_plan& launch_plan)
    : root(std::move(root_directory)), plan(launch_plan)
{
}

bool Proc_address_source::parse_line(const std::string& line, Interface_address& address)
{
    std::istringstream fields(line);
    std::string digits;
    std::string index;
    std::string prefix;
    std::string scope;
    std::string flags;
    std::string name;
    if (!(fields >> digits >> index >> prefix >> scope >> flags >> name) || !address_text(digits, address.address)) {
        return false;
    }
    try {
        const unsigned long scope_value = std::stoul(scope, nullptr, 16);
        address.scope_id = scope_value == link_scope ? static_cast<std::uint32_t>(std::stoul(index, nullptr, 16)) : 0;
    } catch (const std::logic_error&) {
        return false;
    }
    address.interface_name = name;
    return true;
}

bool Proc_address_source::read_ipv6_addresses(std::vector<Interface_address>& addresses)
{
    std::ifstream table(root + table_path);
    Planned_read read{table_path, "file", table.is_open(), {}};
    std::string line;
    while (std::getline(table, line)) {
        Interface_address address;
        if (parse_line(line, address)) {
            addresses.push_back(address);
            read.entries.push_back(address.interface_name + " " + address.address);
        }
    }
    const bool found = read.found;
    plan.reads.push_back(std::move(read));
    return found;
}

// SPDX-License-Identifier: Apache-2.0
#include "vela/com/someip/sd_message.hpp"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "vela/com/someip/deserializer.hpp"
#include "vela/com/someip/serializer.hpp"

namespace vela {
namespace com {
namespace someip {

namespace {
constexpr std::uint8_t kRebootFlag = 0x80;
constexpr std::uint8_t kUnicastFlag = 0x40;
constexpr std::size_t kEntrySize = 16;

bool is_v6_option(std::uint8_t type)
{
    return type == static_cast<std::uint8_t>(Option_type::kIpv6Endpoint) ||
           type == static_cast<std::uint8_t>(Option_type::kIpv6Multicast);
}

void encode_option(Serializer& out, const Sd_option& option)
{
    if (!option.is_endpoint()) {
        out.write_u16(static_cast<std::uint16_t>(option.raw.size()));
        out.write_u8(option.type);
        out.write_bytes(option.raw.data(), option.raw.size());
        return;
    }
    const std::size_t address_size = option.endpoint.v6 ? 16 : 4;
    out.write_u16(static_cast<std::uint16_t>(address_size + 5));
    out.write_u8(option.type);
    out.write_u8(0);
    out.write_bytes(option.endpoint.address.data(), address_size);
    out.write_u8(0);
    out.write_u8(option.protocol);
    out.write_u16(option.endpoint.port);
}

Sd_option decode_option(Deserializer& in)
{
    const std::uint16_t length = in.read_u16();
    Sd_option option;
    option.type = in.read_u8();
    in.open_record_of(length);
    if (option.is_endpoint()) {
        const std::size_t address_size = is_v6_option(option.type) ? 16 : 4;
        if (length != address_size + 5) {
            throw std::runtime_error("endpoint option of wrong length " + std::to_string(length));
        }
        option.endpoint.v6 = address_size == 16;
        (void)in.read_u8();
        const std::vector<std::uint8_t> address = in.read_bytes(address_size);
        std::copy(address.begin(), address.end(), option.endpoint.address.begin());
        (void)in.read_u8();
        option.protocol = in.read_u8();
        option.endpoint.port = in.read_u16();
    } else {
        option.raw = in.read_bytes(length);
    }
    in.close_record();
    return option;
}

// Adds the entry's options to the array (identical options are shared) and returns the first index.
std::uint8_t place_options(const Sd_entry& entry, std::vector<Sd_option>& array)
{
    if (entry.options.empty()) {
        return 0;
    }
    const auto run = std::search(array.begin(), array.end(), entry.options.begin(), entry.options.end());
    if (run != array.end()) {
        return static_cast<std::uint8_t>(run - array.begin());
    }
    const auto first = static_cast<std::uint8_t>(array.size());
    array.insert(array.end(), entry.options.begin(), entry.options.end());
    return first;
}

void encode_entry(Serializer& out, const Sd_entry& entry, std::uint8_t first_option)
{
    out.write_u8(static_cast<std::uint8_t>(entry.type));
    out.write_u8(first_option);
    out.write_u8(0);
    out.write_u8(static_cast<std::uint8_t>(entry.options.size() << 4));
    out.write_u16(entry.service_id);
    out.write_u16(entry.instance_id);
    out.write_u8(entry.major);
    out.write_u8(static_cast<std::uint8_t>(entry.ttl >> 16));
    out.write_u16(static_cast<std::uint16_t>(entry.ttl));
    if (entry.is_eventgroup_entry()) {
        out.write_u8(0);
        out.write_u8(static_cast<std::uint8_t>(entry.counter & 0x0FU));
        out.write_u16(entry.eventgroup_id);
    } else {
        out.write_u32(entry.minor);
    }
}

struct Option_runs {
    std::uint8_t index1, index2, count1, count2;
};

Sd_entry decode_entry(Deserializer& in, Option_runs& runs)
{
    Sd_entry entry;
    entry.type = static_cast<Entry_type>(in.read_u8());
    runs.index1 = in.read_u8();
    runs.index2 = in.read_u8();
    const std::uint8_t counts = in.read_u8();
    runs.count1 = static_cast<std::uint8_t>(counts >> 4);
    runs.count2 = static_cast<std::uint8_t>(counts & 0x0FU);
    entry.service_id = in.read_u16();
    entry.instance_id = in.read_u16();
    entry.major = in.read_u8();
    entry.ttl = static_cast<std::uint32_t>(in.read_u8()) << 16;
    entry.ttl |= in.read_u16();
    if (entry.is_eventgroup_entry()) {
        (void)in.read_u8();
        entry.counter = static_cast<std::uint8_t>(in.read_u8() & 0x0FU);
        entry.eventgroup_id = in.read_u16();
    } else {
        entry.minor = in.read_u32();
    }
    return entry;
}

void resolve_run(const std::vector<Sd_option>& array, std::uint8_t index, std::uint8_t count, Sd_entry& entry)
{
    if (count == 0) {
        return;
    }
    if (static_cast<std::size_t>(index) + count > array.size()) {
        throw std::runtime_error("entry refers to option " + std::to_string(index + count - 1) + " of " +
                                 std::to_string(array.size()));
    }
    entry.options.insert(entry.options.end(), array.begin() + index, array.begin() + index + count);
}
}  // namespace

bool Sd_option::is_endpoint() const
{
    return type == static_cast<std::uint8_t>(Option_type::kIpv4Endpoint) ||
           type == static_cast<std::uint8_t>(Option_type::kIpv6Endpoint) ||
           type == static_cast<std::uint8_t>(Option_type::kIpv4Multicast) ||
           type == static_cast<std::uint8_t>(Option_type::kIpv6Multicast);
}

Sd_option Sd_option::udp_endpoint(const runtime::Endpoint& endpoint)
{
    Sd_option option;
    option.type = static_cast<std::uint8_t>(endpoint.v6 ? Option_type::kIpv6Endpoint : Option_type::kIpv4Endpoint);
    option.endpoint = endpoint;
    option.protocol = kProtocolUdp;
    return option;
}

bool Sd_entry::udp_endpoint(runtime::Endpoint& out) const
{
    for (const auto& option : options) {
        const bool unicast = option.type == static_cast<std::uint8_t>(Option_type::kIpv4Endpoint) ||
                             option.type == static_cast<std::uint8_t>(Option_type::kIpv6Endpoint);
        if (unicast && option.protocol == kProtocolUdp) {
            out = option.endpoint;
            return true;
        }
    }
    return false;
}

std::vector<std::uint8_t> Sd_message::encode() const
{
    std::vector<Sd_option> options;
    std::vector<std::uint8_t> first_options;
    for (const auto& entry : entries) {
        first_options.push_back(place_options(entry, options));
    }
    std::vector<std::uint8_t> out;
    Serializer writer(out);
    writer.write_u8(static_cast<std::uint8_t>((reboot ? kRebootFlag : 0) | (unicast ? kUnicastFlag : 0)));
    writer.write_u8(0);
    writer.write_u16(0);
    const std::size_t entries_length = writer.begin_length();
    for (std::size_t i = 0; i < entries.size(); ++i) {
        encode_entry(writer, entries[i], first_options[i]);
    }
    writer.end_length(entries_length);
    const std::size_t options_length = writer.begin_length();
    for (const auto& option : options) {
        encode_option(writer, option);
    }
    writer.end_length(options_length);
    return out;
}

bool Sd_message::decode(const std::uint8_t* data, std::size_t size, Sd_message& out, std::string& error)
{
    try {
        Deserializer in(data, size);
        Sd_message message;
        const std::uint8_t flags = in.read_u8();
        message.reboot = (flags & kRebootFlag) != 0;
        message.unicast = (flags & kUnicastFlag) != 0;
        in.skip(3);
        const std::uint32_t entries_length = in.read_u32();
        if (entries_length % kEntrySize != 0) {
            throw std::runtime_error("entries array length " + std::to_string(entries_length) +
                                     " is not a multiple of 16");
        }
        in.open_record_of(entries_length);
        std::vector<Option_runs> runs;
        while (in.remaining() > 0) {
            runs.emplace_back();
            message.entries.push_back(decode_entry(in, runs.back()));
        }
        in.close_record();
        in.open_record();
        std::vector<Sd_option> options;
        while (in.remaining() > 0) {
            options.push_back(decode_option(in));
        }
        in.close_record();
        for (std::size_t i = 0; i < message.entries.size(); ++i) {
            resolve_run(options, runs[i].index1, runs[i].count1, message.entries[i]);
            resolve_run(options, runs[i].index2, runs[i].count2, message.entries[i]);
        }
        out = message;
        return true;
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
}

}  // namespace someip
}  // namespace com
}  // namespace vela

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_SOMEIP_SD_MESSAGE_HPP
#define VELA_COM_SOMEIP_SD_MESSAGE_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vela/com/runtime/endpoint.hpp"

namespace vela {
namespace com {
namespace someip {

constexpr std::uint16_t kSdServiceId = 0xFFFF;
constexpr std::uint16_t kSdMethodId = 0x8100;
constexpr std::uint16_t kAnyInstance = 0xFFFF;
constexpr std::uint8_t kAnyMajor = 0xFF;
constexpr std::uint32_t kAnyMinor = 0xFFFFFFFF;
constexpr std::uint8_t kProtocolUdp = 0x11;

enum class Entry_type : std::uint8_t {
    kFindService = 0x00,
    kOfferService = 0x01,            // TTL 0: StopOfferService
    kSubscribeEventgroup = 0x06,     // TTL 0: StopSubscribeEventgroup
    kSubscribeEventgroupAck = 0x07,  // TTL 0: SubscribeEventgroupNack
};

enum class Option_type : std::uint8_t {
    kIpv4Endpoint = 0x04,
    kIpv6Endpoint = 0x06,
    kIpv4Multicast = 0x14,
    kIpv6Multicast = 0x16,
};

// Endpoint options are understood; any other option is kept as raw bytes so that
// its index still counts.
struct Sd_option {
    std::uint8_t type = static_cast<std::uint8_t>(Option_type::kIpv4Endpoint);
    runtime::Endpoint endpoint;
    std::uint8_t protocol = kProtocolUdp;
    std::vector<std::uint8_t> raw;

    bool is_endpoint() const;
    static Sd_option udp_endpoint(const runtime::Endpoint& endpoint);
    friend bool operator==(const Sd_option& a, const Sd_option& b)
    {
        return a.type == b.type && a.endpoint == b.endpoint && a.protocol == b.protocol && a.raw == b.raw;
    }
};

struct Sd_entry {
    Entry_type type = Entry_type::kFindService;
    std::uint16_t service_id = 0;
    std::uint16_t instance_id = kAnyInstance;
    std::uint8_t major = kAnyMajor;
    std::uint32_t ttl = 0;            // 24 bit, seconds
    std::uint32_t minor = kAnyMinor;  // service entries
    std::uint8_t counter = 0;         // eventgroup entries
    std::uint16_t eventgroup_id = 0;  // eventgroup entries
    std::vector<Sd_option> options;   // both option runs, resolved

    bool is_eventgroup_entry() const
    {
        return type == Entry_type::kSubscribeEventgroup || type == Entry_type::kSubscribeEventgroupAck;
    }
    // The first UDP endpoint option, if any.
    bool udp_endpoint(runtime::Endpoint& out) const;
};

// The payload of one service discovery message (after the 16-byte SOME/IP header).
struct Sd_message {
    bool reboot = false;
    bool unicast = true;
    std::vector<Sd_entry> entries;

    std::vector<std::uint8_t> encode() const;
    static bool decode(const std::uint8_t* data, std::size_t size, Sd_message& out, std::string& error);
};

}  // namespace someip
}  // namespace com
}  // namespace vela

#endif

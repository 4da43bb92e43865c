// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "vela/com/runtime/sd_reboot_detector.hpp"
#include "vela/com/runtime/sd_session_counter.hpp"
#include "vela/com/someip/message_header.hpp"
#include "vela/com/someip/sd_message.hpp"

namespace {
using namespace vela::com::someip;
using vela::com::runtime::Endpoint;
using vela::com::runtime::Sd_reboot_detector;
using vela::com::runtime::Sd_session_counter;
using Bytes = std::vector<std::uint8_t>;

Endpoint endpoint(const std::string& address, std::uint16_t port)
{
    Endpoint parsed;
    EXPECT_TRUE(Endpoint::parse(address, port, parsed));
    return parsed;
}

TEST(SdCodec, OfferWithIpv4EndpointIsEncodedByteForByte)
{
    Sd_message message;
    message.reboot = true;
    Sd_entry offer;
    offer.type = Entry_type::kOfferService;
    offer.service_id = 0x1A2B;
    offer.instance_id = 0x0001;
    offer.major = 1;
    offer.ttl = 3;
    offer.minor = 0;
    offer.options.push_back(Sd_option::udp_endpoint(endpoint("127.0.0.1", 30501)));
    message.entries.push_back(offer);
    const Bytes expected = {0xC0, 0, 0,    0,   // reboot + unicast flags
                            0,    0, 0,    16,  // entries
                            0x01, 0, 0,    0x10, 0x1A, 0x2B, 0x00, 0x01, 0x01, 0,    0,    3,
                            0,    0, 0,    0,    0,    0,    0,    12,  // options
                            0,    9, 0x04, 0,    127,  0,    0,    1,    0,    0x11, 0x77, 0x25};
    EXPECT_EQ(message.encode(), expected);

    Sd_message decoded;
    std::string error;
    ASSERT_TRUE(Sd_message::decode(expected.data(), expected.size(), decoded, error)) << error;
    ASSERT_EQ(decoded.entries.size(), 1u);
    Endpoint found;
    ASSERT_TRUE(decoded.entries[0].udp_endpoint(found));
    EXPECT_EQ(found.to_string(), "127.0.0.1:30501");
    EXPECT_TRUE(decoded.reboot);
}

TEST(SdCodec, SubscribeAndAckShareOptionsAndCarryEventgroup)
{
    Sd_message message;
    message.reboot = false;
    Sd_entry subscribe;
    subscribe.type = Entry_type::kSubscribeEventgroup;
    subscribe.service_id = 0x2E10;
    subscribe.instance_id = 0x30A4;
    subscribe.major = 1;
    subscribe.ttl = 0xFFFFFF;
    subscribe.counter = 2;
    subscribe.eventgroup_id = 0x0001;
    subscribe.options.push_back(Sd_option::udp_endpoint(endpoint("fd00::2", 40000)));
    message.entries = {subscribe, subscribe};
    const Bytes bytes = message.encode();
    const Bytes first_entry(bytes.begin() + 8, bytes.begin() + 24);
    EXPECT_EQ(first_entry, (Bytes{0x06, 0, 0, 0x10, 0x2E, 0x10, 0x30, 0xA4, 1, 0xFF, 0xFF, 0xFF, 0, 2, 0, 1}));
    // The identical option is stored once: 4 + 24 bytes of options.
    EXPECT_EQ(bytes.size(), 8u + 32u + 4u + 24u);

    Sd_message decoded;
    std::string error;
    ASSERT_TRUE(Sd_message::decode(bytes.data(), bytes.size(), decoded, error)) << error;
    ASSERT_EQ(decoded.entries.size(), 2u);
    EXPECT_EQ(decoded.entries[1].eventgroup_id, 1u);
    EXPECT_EQ(decoded.entries[1].counter, 2u);
    EXPECT_EQ(decoded.entries[1].options.at(0).endpoint.to_string(), "[fd00::2]:40000");
}

TEST(SdCodec, MalformedMessagesAreRejectedWithAReason)
{
    std::string error;
    Sd_message decoded;
    const Bytes odd_entries = {0, 0, 0, 0, 0, 0, 0, 5, 1, 2, 3, 4, 5, 0, 0, 0, 0};
    EXPECT_FALSE(Sd_message::decode(odd_entries.data(), odd_entries.size(), decoded, error));
    EXPECT_NE(error.find("multiple of 16"), std::string::npos);

    const Bytes bad_index = {0, 0, 0, 0, 0, 0, 0, 16, 0x01, 3, 0, 0x10, 0, 1, 0, 1, 1, 0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0};
    EXPECT_FALSE(Sd_message::decode(bad_index.data(), bad_index.size(), decoded, error));
    EXPECT_NE(error.find("option"), std::string::npos);

    const Bytes truncated = {0, 0, 0, 0, 0, 0, 0, 32};
    EXPECT_FALSE(Sd_message::decode(truncated.data(), truncated.size(), decoded, error));
}

TEST(MessageHeader, RoundTripsByteForByte)
{
    Message_header header;
    header.service_id = 0x1A2B;
    header.method_id = 2;
    header.client_id = 0x0101;
    header.session_id = 7;
    header.interface_version = 1;
    header.message_type = Message_type::kError;
    header.return_code = Return_code::kUnknownMethod;
    const Bytes bytes = header.encode({0xAA});
    EXPECT_EQ(bytes, (Bytes{0x1A, 0x2B, 0, 2, 0, 0, 0, 9, 1, 1, 0, 7, 1, 1, 0x81, 0x03, 0xAA}));
    Message_header decoded;
    ASSERT_TRUE(Message_header::decode(bytes.data(), bytes.size(), decoded));
    EXPECT_EQ(decoded.return_code, Return_code::kUnknownMethod);
    EXPECT_EQ(decoded.message_size(), bytes.size());
}

// Several messages may share one datagram; the walk stops at the first malformed one.
TEST(DatagramReader, WalksPackedMessagesAndStopsAtAMalformedTail)
{
    Message_header first;
    first.session_id = 1;
    Message_header second;
    second.session_id = 2;
    const Bytes a = first.encode({1, 2, 3});
    const Bytes b = second.encode({});
    const auto join = [](std::initializer_list<Bytes> parts) {
        Bytes out;
        for (const auto& part : parts) {
            out.insert(out.end(), part.begin(), part.end());
        }
        return out;
    };
    Bytes length_too_small = b;
    length_too_small[7] = 7;
    Bytes length_past_end = b;
    length_past_end[7] = 9;
    const struct {
        const char* name;
        Bytes datagram;
        std::vector<std::uint16_t> sessions;
        bool malformed;
        std::size_t stopped_at;
    } cases[] = {
        {"one message", a, {1}, false, a.size()},
        {"two messages", join({a, b}), {1, 2}, false, a.size() + b.size()},
        {"short tail", join({a, b, Bytes{0, 0, 0}}), {1, 2}, true, a.size() + b.size()},
        {"length below the header", join({a, length_too_small}), {1}, true, a.size()},
        {"length past the datagram", join({a, length_past_end}), {1}, true, a.size()},
        {"empty datagram", {}, {}, false, 0},
    };
    for (const auto& c : cases) {
        Datagram_reader reader(c.datagram.data(), c.datagram.size());
        Message_header header;
        const std::uint8_t* payload = nullptr;
        std::size_t size = 0;
        std::vector<std::uint16_t> sessions;
        while (reader.next(header, payload, size)) {
            sessions.push_back(header.session_id);
            EXPECT_EQ(size, header.session_id == 1 ? 3u : 0u) << c.name;
        }
        EXPECT_EQ(sessions, c.sessions) << c.name;
        EXPECT_EQ(reader.malformed(), c.malformed) << c.name;
        EXPECT_EQ(reader.offset(), c.stopped_at) << c.name;
    }
}

TEST(SdSessions, CounterStartsAtOneWithRebootFlagAndClearsItOnWrap)
{
    Sd_session_counter counter;
    const auto first = counter.next();
    EXPECT_EQ(first.session, 1);
    EXPECT_TRUE(first.reboot);
    for (int i = 2; i < 0xFFFF; ++i) {
        (void)counter.next();
    }
    const auto last = counter.next();
    EXPECT_EQ(last.session, 0xFFFF);
    EXPECT_TRUE(last.reboot);
    const auto wrapped = counter.next();
    EXPECT_EQ(wrapped.session, 1);
    EXPECT_FALSE(wrapped.reboot);
}

TEST(SdSessions, RebootIsDetectedPerPeerAndRelation)
{
    Sd_reboot_detector detector;
    EXPECT_FALSE(detector.observe("a", true, 1, true));
    EXPECT_FALSE(detector.observe("a", true, 2, true));
    EXPECT_FALSE(detector.observe("a", false, 1, true));  // unicast relation counts on its own
    EXPECT_TRUE(detector.observe("a", true, 1, true));    // session did not grow
    EXPECT_FALSE(detector.observe("b", true, 0xFFFF, true));
    EXPECT_FALSE(detector.observe("b", true, 1, false));  // wrap-around clears the flag
    EXPECT_TRUE(detector.observe("b", true, 2, true));    // flag set again
    EXPECT_FALSE(detector.observe("c", true, 5, false));
    EXPECT_FALSE(detector.observe("c", true, 6, false));
}
}  // namespace

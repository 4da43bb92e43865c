// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_SOMEIP_MESSAGE_HEADER_HPP
#define VELA_COM_SOMEIP_MESSAGE_HEADER_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela {
namespace com {
namespace someip {

enum class Message_type : std::uint8_t {
    kRequest = 0x00,
    kRequestNoReturn = 0x01,
    kNotification = 0x02,
    kResponse = 0x80,
    kError = 0x81,
};

enum class Return_code : std::uint8_t {
    kOk = 0x00,
    kNotOk = 0x01,
    kUnknownService = 0x02,
    kUnknownMethod = 0x03,
    kNotReady = 0x04,
    kNotReachable = 0x05,
    kTimeout = 0x06,
    kWrongProtocolVersion = 0x07,
    kWrongInterfaceVersion = 0x08,
    kMalformedMessage = 0x09,
    kWrongMessageType = 0x0A,
};

constexpr std::size_t kHeaderSize = 16;
constexpr std::uint8_t kProtocolVersion = 1;

// The 16-byte header in front of every SOME/IP message.
struct Message_header {
    std::uint16_t service_id = 0;
    std::uint16_t method_id = 0;
    std::uint32_t length = 8;  // from the request ID to the end of the payload
    std::uint16_t client_id = 0;
    std::uint16_t session_id = 0;
    std::uint8_t protocol_version = kProtocolVersion;
    std::uint8_t interface_version = 0;
    Message_type message_type = Message_type::kRequest;
    Return_code return_code = Return_code::kOk;

    // Writes header and payload into one datagram.
    std::vector<std::uint8_t> encode(const std::vector<std::uint8_t>& payload) const;
    // Bytes the whole message takes: the first 8 header bytes plus `length`.
    std::size_t message_size() const { return 8 + static_cast<std::size_t>(length); }
    // Reads the header at the start of `size` bytes; false if they are too short or
    // the message's length runs past them. Bytes after the message are left alone:
    // a datagram may carry several messages.
    static bool decode(const std::uint8_t* data, std::size_t size, Message_header& out);
};

// Walks the messages a datagram carries, each framed by its own length field. A
// malformed message ends the walk; the messages before it stay valid.
class Datagram_reader {
public:
    Datagram_reader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
    // The next message; false at the end of the datagram or at a malformed message.
    bool next(Message_header& header, const std::uint8_t*& payload, std::size_t& payload_size);
    bool malformed() const { return malformed_; }
    // Where the walk stopped: the malformed message's offset, or the datagram's size.
    std::size_t offset() const { return offset_; }

private:
    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t offset_ = 0;
    bool malformed_ = false;
};

const char* to_string(Return_code code);

}  // namespace someip
}  // namespace com
}  // namespace vela

#endif

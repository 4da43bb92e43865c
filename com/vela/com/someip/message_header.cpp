// SPDX-License-Identifier: Apache-2.0
#include "vela/com/someip/message_header.hpp"

#include "vela/com/someip/deserializer.hpp"
#include "vela/com/someip/serializer.hpp"

namespace vela {
namespace com {
namespace someip {

std::vector<std::uint8_t> Message_header::encode(const std::vector<std::uint8_t>& payload) const
{
    std::vector<std::uint8_t> out;
    out.reserve(kHeaderSize + payload.size());
    Serializer writer(out);
    writer.write_u16(service_id);
    writer.write_u16(method_id);
    writer.write_u32(static_cast<std::uint32_t>(8 + payload.size()));
    writer.write_u16(client_id);
    writer.write_u16(session_id);
    writer.write_u8(protocol_version);
    writer.write_u8(interface_version);
    writer.write_u8(static_cast<std::uint8_t>(message_type));
    writer.write_u8(static_cast<std::uint8_t>(return_code));
    writer.write_bytes(payload.data(), payload.size());
    return out;
}

bool Message_header::decode(const std::uint8_t* data, std::size_t size, Message_header& out)
{
    if (size < kHeaderSize) {
        return false;
    }
    Deserializer reader(data, size);
    out.service_id = reader.read_u16();
    out.method_id = reader.read_u16();
    out.length = reader.read_u32();
    out.client_id = reader.read_u16();
    out.session_id = reader.read_u16();
    out.protocol_version = reader.read_u8();
    out.interface_version = reader.read_u8();
    out.message_type = static_cast<Message_type>(reader.read_u8());
    out.return_code = static_cast<Return_code>(reader.read_u8());
    return out.length >= 8 && out.length <= size - 8;
}

bool Datagram_reader::next(Message_header& header, const std::uint8_t*& payload, std::size_t& payload_size)
{
    if (malformed_ || offset_ == size_) {
        return false;
    }
    if (!Message_header::decode(data_ + offset_, size_ - offset_, header)) {
        malformed_ = true;
        return false;
    }
    payload = data_ + offset_ + kHeaderSize;
    payload_size = header.message_size() - kHeaderSize;
    offset_ += header.message_size();
    return true;
}

const char* to_string(Return_code code)
{
    switch (code) {
        case Return_code::kOk:
            return "E_OK";
        case Return_code::kNotOk:
            return "E_NOT_OK";
        case Return_code::kUnknownService:
            return "E_UNKNOWN_SERVICE";
        case Return_code::kUnknownMethod:
            return "E_UNKNOWN_METHOD";
        case Return_code::kNotReady:
            return "E_NOT_READY";
        case Return_code::kNotReachable:
            return "E_NOT_REACHABLE";
        case Return_code::kTimeout:
            return "E_TIMEOUT";
        case Return_code::kWrongProtocolVersion:
            return "E_WRONG_PROTOCOL_VERSION";
        case Return_code::kWrongInterfaceVersion:
            return "E_WRONG_INTERFACE_VERSION";
        case Return_code::kMalformedMessage:
            return "E_MALFORMED_MESSAGE";
        case Return_code::kWrongMessageType:
            return "E_WRONG_MESSAGE_TYPE";
    }
    return "E_UNKNOWN";
}

}  // namespace someip
}  // namespace com
}  // namespace vela

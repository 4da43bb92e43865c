// SPDX-License-Identifier: Apache-2.0
#include "vela/com/someip/tlv_reader.hpp"

#include "vela/com/someip/serialization_error.hpp"

namespace vela {
namespace com {
namespace someip {

namespace {
constexpr std::size_t kConfiguredLengthWidth = 4;

// Wire types 0..3 carry fixed-size values, 4..7 a length field (4: the configured width).
std::size_t length_width(std::uint8_t wire_type)
{
    switch (wire_type) {
        case 5:
            return 1;
        case 6:
            return 2;
        case 7:
            return 4;
        default:
            return kConfiguredLengthWidth;
    }
}

bool carries_length(std::uint8_t wire_type)
{
    return wire_type >= 4;
}
}  // namespace

void Tlv_reader::read_struct(Deserializer& in, const std::uint16_t* tags, std::size_t count,
                             const Member_reader& read_member)
{
    if (tags == nullptr) {
        throw Serialization_error(error_text::kNoTagList);
    }
    for (std::size_t index = 0; index < count; ++index) {
        while (in.remaining() > 0) {
            const std::uint16_t tag = in.read_u16();
            if (data_id(tag) == data_id(tags[index])) {
                if (!compatible(wire_type(tags[index]), wire_type(tag))) {
                    throw Serialization_error(error_text::kInvalidWireType);
                }
                read_value(in, wire_type(tag), index, read_member);
                break;
            }
            if (is_other_member(tags, count, index, data_id(tag))) {
                in.seek_back(2);
                break;
            }
            skip_member(in, wire_type(tag));
        }
    }
}

bool Tlv_reader::compatible(std::uint8_t expected, std::uint8_t actual)
{
    return expected == actual || (carries_length(expected) && carries_length(actual));
}

bool Tlv_reader::is_other_member(const std::uint16_t* tags, std::size_t count, std::size_t index, std::uint16_t id)
{
    for (std::size_t other = 0; other < count; ++other) {
        if (other != index && data_id(tags[other]) == id) {
            return true;
        }
    }
    return false;
}

void Tlv_reader::skip_member(Deserializer& in, std::uint8_t wire_type)
{
    if (!carries_length(wire_type)) {
        in.skip(std::uint64_t{1} << wire_type);
        return;
    }
    const std::size_t width = length_width(wire_type);
    if (in.remaining() < width) {
        throw Serialization_error(error_text::kSeekBeyondEnd);
    }
    in.skip(in.read_length(width));
}

void Tlv_reader::read_value(Deserializer& in, std::uint8_t wire_type, std::size_t index,
                            const Member_reader& read_member)
{
    if (!carries_length(wire_type)) {
        read_member(index, in);
        return;
    }
    in.open_record(length_width(wire_type));
    read_member(index, in);
    in.close_record();
}

}  // namespace someip
}  // namespace com
}  // namespace vela

// SPDX-License-Identifier: Apache-2.0
#include "vela/com/someip/serializer.hpp"

#include "vela/com/someip/serialization_error.hpp"

namespace vela {
namespace com {
namespace someip {

void Serializer::write_bytes(const std::uint8_t* data, std::size_t size)
{
    out_.insert(out_.end(), data, data + size);
}

std::size_t Serializer::begin_length(std::size_t width)
{
    const std::size_t position = out_.size();
    write_be(0, width);
    return position;
}

void Serializer::end_length(std::size_t position, std::size_t width)
{
    const std::uint64_t length = out_.size() - position - width;
    const std::uint64_t limit = width >= 8 ? ~0ULL : (1ULL << (8 * width)) - 1;
    if (length > limit) {
        throw Serialization_error(error_text::kLengthFieldTooSmall);
    }
    patch_be(position, length, width);
}

void Serializer::write_tag(std::uint8_t wire_type, std::uint16_t data_id)
{
    write_u16(static_cast<std::uint16_t>(((wire_type & 0x7U) << 12) | (data_id & 0x0FFFU)));
}

void Serializer::write_be(std::uint64_t value, std::size_t width)
{
    for (std::size_t i = width; i > 0; --i) {
        out_.push_back(static_cast<std::uint8_t>(value >> (8 * (i - 1))));
    }
}

void Serializer::patch_be(std::size_t position, std::uint64_t value, std::size_t width)
{
    for (std::size_t i = 0; i < width; ++i) {
        out_[position + i] = static_cast<std::uint8_t>(value >> (8 * (width - 1 - i)));
    }
}

}  // namespace someip
}  // namespace com
}  // namespace vela

// SPDX-License-Identifier: Apache-2.0
#include "vela/com/someip/deserializer.hpp"

#include <limits>

#include "vela/com/someip/serialization_error.hpp"

namespace vela {
namespace com {
namespace someip {

std::vector<std::uint8_t> Deserializer::read_bytes(std::size_t count)
{
    require(count);
    std::vector<std::uint8_t> bytes(data_ + position_, data_ + position_ + count);
    position_ += count;
    return bytes;
}

std::uint64_t Deserializer::read_length(std::size_t width)
{
    return read_be(width);
}

void Deserializer::open_record(std::size_t width)
{
    open_record_of(read_be(width));
}

void Deserializer::open_record_of(std::uint64_t length)
{
    if (length > std::numeric_limits<std::size_t>::max() - position_) {
        throw Serialization_error(error_text::kSizeOverflow);
    }
    const std::size_t end = position_ + static_cast<std::size_t>(length);
    if (in_record() && end > ends_.back()) {
        throw Serialization_error(error_text::kRecordTooSmall);
    }
    if (end > size_) {
        throw Serialization_error(error_text::kInvalidEnd);
    }
    ends_.push_back(end);
}

void Deserializer::close_record()
{
    position_ = ends_.back();
    ends_.pop_back();
}

void Deserializer::skip(std::uint64_t count)
{
    if (count > remaining()) {
        throw Serialization_error(error_text::kSeekBeyondEnd);
    }
    position_ += static_cast<std::size_t>(count);
}

void Deserializer::seek_back(std::size_t count)
{
    position_ -= count;
}

std::uint64_t Deserializer::read_be(std::size_t width)
{
    require(width);
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < width; ++i) {
        value = (value << 8) | data_[position_ + i];
    }
    position_ += width;
    return value;
}

void Deserializer::require(std::size_t count) const
{
    if (count <= remaining()) {
        return;
    }
    throw Serialization_error(in_record() ? error_text::kRecordTooSmall : error_text::kReadBeyondEnd);
}

}  // namespace someip
}  // namespace com
}  // namespace vela

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_SOMEIP_DESERIALIZER_HPP
#define VELA_COM_SOMEIP_DESERIALIZER_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela {
namespace com {
namespace someip {

// Reads big-endian values from a received payload. Records opened by a length
// field bound every read inside them; closing a record skips what is left of it,
// so a sender with a newer data model (more members) is still understood.
class Deserializer {
public:
    Deserializer(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

    std::uint8_t read_u8() { return static_cast<std::uint8_t>(read_be(1)); }
    std::uint16_t read_u16() { return static_cast<std::uint16_t>(read_be(2)); }
    std::uint32_t read_u32() { return static_cast<std::uint32_t>(read_be(4)); }
    std::uint64_t read_u64() { return read_be(8); }
    std::vector<std::uint8_t> read_bytes(std::size_t count);
    std::uint64_t read_length(std::size_t width);

    // Reads a length field of `width` bytes and opens the record it announces.
    void open_record(std::size_t width = 4);
    // Opens a record of `length` bytes starting at the current position.
    void open_record_of(std::uint64_t length);
    void close_record();

    void skip(std::uint64_t count);
    void seek_back(std::size_t count);

    std::size_t remaining() const { return limit() - position_; }
    std::size_t position() const { return position_; }
    bool in_record() const { return !ends_.empty(); }

private:
    std::size_t limit() const { return ends_.empty() ? size_ : ends_.back(); }
    std::uint64_t read_be(std::size_t width);
    void require(std::size_t count) const;

    const std::uint8_t* data_;
    std::size_t size_;
    std::size_t position_ = 0;
    std::vector<std::size_t> ends_;
};

}  // namespace someip
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_SOMEIP_SERIALIZER_HPP
#define VELA_COM_SOMEIP_SERIALIZER_HPP

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vela {
namespace com {
namespace someip {

// Appends big-endian values to a payload. Length fields are reserved first and
// filled in when the record they cover is complete.
class Serializer {
public:
    explicit Serializer(std::vector<std::uint8_t>& out) : out_(out) {}

    void write_u8(std::uint8_t value) { out_.push_back(value); }
    void write_u16(std::uint16_t value) { write_be(value, 2); }
    void write_u32(std::uint32_t value) { write_be(value, 4); }
    void write_u64(std::uint64_t value) { write_be(value, 8); }
    void write_bytes(const std::uint8_t* data, std::size_t size);

    // Reserves a length field of `width` bytes (1, 2 or 4) and returns its position.
    std::size_t begin_length(std::size_t width = 4);
    // Fills the length field at `position` with the number of bytes written since.
    void end_length(std::size_t position, std::size_t width = 4);

    // TLV tag: wire type in bits 14..12, data ID in bits 11..0.
    void write_tag(std::uint8_t wire_type, std::uint16_t data_id);

    std::size_t size() const { return out_.size(); }

private:
    void write_be(std::uint64_t value, std::size_t width);
    void patch_be(std::size_t position, std::uint64_t value, std::size_t width);

    std::vector<std::uint8_t>& out_;
};

}  // namespace someip
}  // namespace com
}  // namespace vela

#endif

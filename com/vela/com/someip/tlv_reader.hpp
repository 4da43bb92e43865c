// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_SOMEIP_TLV_READER_HPP
#define VELA_COM_SOMEIP_TLV_READER_HPP

#include <cstddef>
#include <cstdint>
#include <functional>

#include "vela/com/someip/deserializer.hpp"

namespace vela {
namespace com {
namespace someip {

// Decodes the members of a struct in TLV form. `tags` lists the expected tag of
// each member in declaration order (nullptr when none was generated). For each
// member found, `read_member(index, deserializer)` is called with the value
// ahead; members not found stay untouched.
class Tlv_reader {
public:
    using Member_reader = std::function<void(std::size_t, Deserializer&)>;

    static void read_struct(Deserializer& in, const std::uint16_t* tags, std::size_t count,
                            const Member_reader& read_member);

    static std::uint8_t wire_type(std::uint16_t tag) { return static_cast<std::uint8_t>((tag >> 12) & 0x7U); }
    static std::uint16_t data_id(std::uint16_t tag) { return static_cast<std::uint16_t>(tag & 0x0FFFU); }

private:
    static bool compatible(std::uint8_t expected, std::uint8_t actual);
    static bool is_other_member(const std::uint16_t* tags, std::size_t count, std::size_t index, std::uint16_t id);
    static void skip_member(Deserializer& in, std::uint8_t wire_type);
    static void read_value(Deserializer& in, std::uint8_t wire_type, std::size_t index,
                           const Member_reader& read_member);
};

}  // namespace someip
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_SOMEIP_SERIALIZATION_ERROR_HPP
#define VELA_COM_SOMEIP_SERIALIZATION_ERROR_HPP

#include <stdexcept>

namespace vela {
namespace com {
namespace someip {

// Raised by the payload codecs; the texts are what peers and logs see, so they are fixed.
class Serialization_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

namespace error_text {
constexpr const char* kLengthFieldTooSmall = "Calculated record length does not fit into configured length field";
constexpr const char* kRecordTooSmall =
    "Violation of [PRS_SOMEIP_00900]: Record length given by sender is too small. This is possibly due to a "
    "mismatch between the data models of sender and receiver.";
constexpr const char* kInvalidEnd = "Deserialization calculated invalid end position.";
constexpr const char* kSizeOverflow = "Deserialization detected std::size_t overflow.";
constexpr const char* kReadBeyondEnd = "Read beyond the end of the data buffer";
constexpr const char* kSeekBeyondEnd = "Seek beyond the end of the data buffer";
constexpr const char* kInvalidWireType = "Invalid source tag wire type";
constexpr const char* kNoTagList =
    "Deserialization of a type in TLV mode, but no tag list generated. This is an error in the generator.";
}  // namespace error_text

}  // namespace someip
}  // namespace com
}  // namespace vela

#endif

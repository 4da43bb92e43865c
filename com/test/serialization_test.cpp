// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <vector>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_common.hpp"
#include "vela/com/someip/deserializer.hpp"
#include "vela/com/someip/serialization_error.hpp"
#include "vela/com/someip/serializer.hpp"
#include "vela/com/someip/tlv_reader.hpp"

namespace {
namespace ddd = lumo::services::diagnosticdatadistribution;
namespace ser = ddd::serialization;
using vela::com::someip::Deserializer;
using vela::com::someip::Serialization_error;
using vela::com::someip::Serializer;
using vela::com::someip::Tlv_reader;
using Bytes = std::vector<std::uint8_t>;

template <typename F>
std::string error_of(F&& f)
{
    try {
        f();
    } catch (const Serialization_error& e) {
        return e.what();
    }
    return "no error";
}

const std::string kRecordTooSmall =
    "Violation of [PRS_SOMEIP_00900]: Record length given by sender is too small. This is possibly due to a "
    "mismatch between the data models of sender and receiver.";

// Output members: field1..field4 (20 bytes), dataValues (4 + count), returnCode (4).
Bytes output_payload(std::uint32_t length, std::uint32_t count, const Bytes& data, const Bytes& tail = {})
{
    Bytes out;
    Serializer w(out);
    w.write_u32(length);
    w.write_u32(1);
    w.write_u32(2);
    w.write_u64(3);
    w.write_u32(4);
    w.write_u32(count);
    w.write_bytes(data.data(), data.size());
    w.write_bytes(tail.data(), tail.size());
    return out;
}

TEST(PayloadCodec, Request_MatchesTheTwentyByteVector)
{
    const Bytes expected = {0, 0, 0, 0, 0, 0, 0, 0x0C, 0, 0, 0, 0x08, 0, 0, 0, 0, 0, 0, 0x05, 0x0D};
    EXPECT_EQ(ser::encode_getDiagnosticDataValues_request(0, {1293}), expected);
    std::uint32_t arg = 9;
    ddd::datatypes::DT_ListOfIds ids;
    ser::decode_getDiagnosticDataValues_request(expected, arg, ids);
    EXPECT_EQ(arg, 0u);
    EXPECT_EQ(ids, ddd::datatypes::DT_ListOfIds{1293});
}

TEST(PayloadCodec, Output_RoundTripsAndSkipsExtraBytesInsideTheRecord)
{
    ddd::DiagnosticDataDistribution::getDiagnosticDataValues::Output output{7, 8, 9, 10, {1, 2}, 0};
    const Bytes encoded = ser::encode(output);
    const auto decoded = ser::decode_getDiagnosticDataValues_output(encoded.data(), encoded.size());
    EXPECT_EQ(decoded.dataValues, (Bytes{1, 2}));
    EXPECT_EQ(decoded.field3, 9u);

    // Record of 35 bytes: members need 29, the rest is from a newer data model.
    Bytes longer = output_payload(35, 1, {1}, {0xAA, 0xBB, 0xCC, 0xDD, 1, 2, 3, 4, 5, 6});
    const auto tolerant = ser::decode_getDiagnosticDataValues_output(longer.data(), longer.size());
    EXPECT_EQ(tolerant.dataValues, Bytes{1});
    EXPECT_EQ(tolerant.returnCode, 0xAABBCCDDu);
}

TEST(PayloadCodec, Output_DecodeErrorsCarryTheExactTexts)
{
    // dataValues claims more bytes than the record has left.
    Bytes count_too_big = output_payload(29, 40, Bytes(45, 0));
    EXPECT_EQ(error_of([&] { ser::decode_getDiagnosticDataValues_output(count_too_big.data(), count_too_big.size()); }),
              kRecordTooSmall);
    // Record shorter than the members.
    Bytes short_record = output_payload(10, 1, {1}, {0, 0, 0, 0});
    EXPECT_EQ(error_of([&] { ser::decode_getDiagnosticDataValues_output(short_record.data(), short_record.size()); }),
              kRecordTooSmall);
    // Record ends beyond the datagram.
    Bytes truncated = output_payload(29, 1, {1});
    EXPECT_EQ(error_of([&] { ser::decode_getDiagnosticDataValues_output(truncated.data(), truncated.size()); }),
              "Deserialization calculated invalid end position.");
    const Bytes two = {0, 0};
    EXPECT_EQ(error_of([&] { ser::decode_getDiagnosticDataValues_output(two.data(), two.size()); }),
              "Read beyond the end of the data buffer");
}

TEST(PayloadCodec, LengthOverflowAndTooSmallLengthFieldAreReported)
{
    const Bytes data(8, 0);
    Deserializer in(data.data(), data.size());
    (void)in.read_u32();
    EXPECT_EQ(error_of([&] { in.open_record_of(std::numeric_limits<std::uint64_t>::max()); }),
              "Deserialization detected std::size_t overflow.");
    Bytes out;
    Serializer w(out);
    const std::size_t at = w.begin_length(1);
    const Bytes big(300, 1);
    w.write_bytes(big.data(), big.size());
    EXPECT_EQ(error_of([&] { w.end_length(at, 1); }),
              "Calculated record length does not fit into configured length field");
}

TEST(TlvDecoding, DataValuesHash_RoundTripsWithMembersMissing)
{
    ddd::datatypes::DT_dataValuesHash value(2);
    value[0].item1 = 1293;
    value[0].item2 = 1;
    value[0].item3 = 0x1122334455667788ULL;
    value[1].item1 = 5;
    const Bytes encoded = ser::encode(value);
    const auto decoded = ser::decode_dataValuesHash(encoded.data(), encoded.size());
    ASSERT_EQ(decoded.size(), 2u);
    EXPECT_EQ(decoded[0].item3, value[0].item3);
    EXPECT_EQ(decoded[1].item1, 5u);
    EXPECT_FALSE(decoded[1].item2.has_value());
    EXPECT_FALSE(decoded[1].item3.has_value());
}

TEST(TlvDecoding, UnknownDataIdIsSkippedByItsWireType)
{
    // One element: unknown id 7 with wire type 6 (2-byte length, 3 bytes), then item1.
    const Bytes payload = {0, 0, 0, 17, 0, 0, 0, 13, 0x60, 0x07, 0, 3, 9, 9, 9, 0x20, 0x00, 0, 0, 0x05, 0x0D};
    const auto decoded = ser::decode_dataValuesHash(payload.data(), payload.size());
    ASSERT_EQ(decoded.size(), 1u);
    EXPECT_EQ(decoded[0].item1, 1293u);
    EXPECT_FALSE(decoded[0].item2.has_value());
}

TEST(TlvDecoding, WireTypeRulesAndSeekLimits)
{
    // Member expects wire type 2 but the sender used 3.
    const Bytes wrong = {0, 0, 0, 14, 0, 0, 0, 10, 0x30, 0x00, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_EQ(error_of([&] { ser::decode_dataValuesHash(wrong.data(), wrong.size()); }),
              "Invalid source tag wire type");
    // Skipping an unknown member past the element.
    const Bytes beyond = {0, 0, 0, 8, 0, 0, 0, 4, 0x33, 0x01, 0, 0};
    EXPECT_EQ(error_of([&] { ser::decode_dataValuesHash(beyond.data(), beyond.size()); }),
              "Seek beyond the end of the data buffer");

    // Length-carrying wire types 4..7 are interchangeable; another member's ID stops the search.
    const std::uint16_t tags[2] = {0x4001, 0x2002};
    const Bytes struct_bytes = {0x50, 0x01, 2, 0xAB, 0xCD, 0x20, 0x02, 0, 0, 0, 9};
    Deserializer in(struct_bytes.data(), struct_bytes.size());
    std::vector<std::size_t> seen;
    Tlv_reader::read_struct(in, tags, 2, [&](std::size_t member, Deserializer& value) {
        seen.push_back(member);
        (void)value.read_bytes(value.remaining() >= 4 && member == 1 ? 4 : 2);
    });
    EXPECT_EQ(seen, (std::vector<std::size_t>{0, 1}));

    const Bytes reversed = {0x20, 0x02, 0, 0, 0, 9};
    Deserializer back(reversed.data(), reversed.size());
    seen.clear();
    Tlv_reader::read_struct(back, tags, 2, [&](std::size_t member, Deserializer& value) {
        seen.push_back(member);
        (void)value.read_u32();
    });
    EXPECT_EQ(seen, std::vector<std::size_t>{1});

    EXPECT_EQ(error_of([&] { Tlv_reader::read_struct(back, nullptr, 0, [](std::size_t, Deserializer&) {}); }),
              "Deserialization of a type in TLV mode, but no tag list generated. This is an error in the generator.");
}

TEST(TlvDecoding, ElementTooShortForItsMemberIsARecordError)
{
    // Element of 4 bytes holds a tag and only 2 of the 4 value bytes.
    const Bytes payload = {0, 0, 0, 10, 0, 0, 0, 4, 0x20, 0x00, 0, 0, 0, 0};
    EXPECT_EQ(error_of([&] { ser::decode_dataValuesHash(payload.data(), payload.size()); }), kRecordTooSmall);
}
}  // namespace

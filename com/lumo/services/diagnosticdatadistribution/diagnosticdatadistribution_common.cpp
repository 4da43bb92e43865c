// SPDX-License-Identifier: Apache-2.0
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_common.hpp"

#include "vela/com/someip/deserializer.hpp"
#include "vela/com/someip/serializer.hpp"
#include "vela/com/someip/tlv_reader.hpp"

namespace lumo {
namespace services {
namespace diagnosticdatadistribution {

constexpr std::uint16_t datatypes::DT_dataValuesHash_struct::kTags[3];

namespace serialization {

using vela::com::someip::Deserializer;
using vela::com::someip::Serializer;
using vela::com::someip::Tlv_reader;
namespace ddd = DiagnosticDataDistribution;

namespace {
void write_ids(Serializer& out, const datatypes::DT_ListOfIds& ids)
{
    const std::size_t outer = out.begin_length();
    const std::size_t array = out.begin_length();
    for (const std::uint64_t id : ids) {
        out.write_u64(id);
    }
    out.end_length(array);
    out.end_length(outer);
}

void write_bytes(Serializer& out, const std::vector<std::uint8_t>& bytes)
{
    const std::size_t length = out.begin_length();
    out.write_bytes(bytes.data(), bytes.size());
    out.end_length(length);
}

std::vector<std::uint8_t> read_bytes(Deserializer& in)
{
    in.open_record();
    std::vector<std::uint8_t> bytes = in.read_bytes(in.remaining());
    in.close_record();
    return bytes;
}

void write_element(Serializer& out, const datatypes::DT_dataValuesHash_struct& element)
{
    const std::size_t length = out.begin_length();
    if (element.item1) {
        out.write_tag(2, 0);
        out.write_u32(*element.item1);
    }
    if (element.item2) {
        out.write_tag(2, 0);
        out.write_u32(*element.item2);
    }
    if (element.item3) {
        out.write_tag(3, 0);
        out.write_u64(*element.item3);
    }
    out.end_length(length);
}

datatypes::DT_dataValuesHash_struct read_element(Deserializer& in)
{
    datatypes::DT_dataValuesHash_struct element;
    in.open_record();
    Tlv_reader::read_struct(in, datatypes::DT_dataValuesHash_struct::kTags, 3,
                            [&element](std::size_t member, Deserializer& value) {
                                switch (member) {
                                    case 0:
                                        element.item1 = value.read_u32();
                                        break;
                                    case 1:
                                        element.item2 = value.read_u32();
                                        break;
                                    default:
                                        element.item3 = value.read_u64();
                                }
                            });
    in.close_record();
    return element;
}
}  // namespace

std::vector<std::uint8_t> encode_getDiagnosticDataValues_request(std::uint32_t arg, const datatypes::DT_ListOfIds& ids)
{
    std::vector<std::uint8_t> payload;
    Serializer out(payload);
    out.write_u32(arg);
    write_ids(out, ids);
    return payload;
}

void decode_getDiagnosticDataValues_request(const std::vector<std::uint8_t>& payload, std::uint32_t& arg,
                                            datatypes::DT_ListOfIds& ids)
{
    Deserializer in(payload.data(), payload.size());
    arg = in.read_u32();
    in.open_record();
    in.open_record();
    ids.clear();
    while (in.remaining() > 0) {
        ids.push_back(in.read_u64());
    }
    in.close_record();
    in.close_record();
}

std::vector<std::uint8_t> encode(const ddd::getDiagnosticDataValues::Output& output)
{
    std::vector<std::uint8_t> payload;
    Serializer out(payload);
    const std::size_t length = out.begin_length();
    out.write_u32(output.field1);
    out.write_u32(output.field2);
    out.write_u64(output.field3);
    out.write_u32(output.field4);
    write_bytes(out, output.dataValues);
    out.write_u32(output.returnCode);
    out.end_length(length);
    return payload;
}

ddd::getDiagnosticDataValues::Output decode_getDiagnosticDataValues_output(const std::uint8_t* data, std::size_t size)
{
    Deserializer in(data, size);
    ddd::getDiagnosticDataValues::Output output;
    in.open_record();
    output.field1 = in.read_u32();
    output.field2 = in.read_u32();
    output.field3 = in.read_u64();
    output.field4 = in.read_u32();
    output.dataValues = read_bytes(in);
    output.returnCode = in.read_u32();
    in.close_record();
    return output;
}

std::vector<std::uint8_t> encode_getDiagnosticData_request(std::uint32_t first, std::uint32_t second)
{
    std::vector<std::uint8_t> payload;
    Serializer out(payload);
    out.write_u32(first);
    out.write_u32(second);
    return payload;
}

void decode_getDiagnosticData_request(const std::vector<std::uint8_t>& payload, std::uint32_t& first,
                                      std::uint32_t& second)
{
    Deserializer in(payload.data(), payload.size());
    first = in.read_u32();
    second = in.read_u32();
}

std::vector<std::uint8_t> encode(const ddd::getDiagnosticData::Output& output)
{
    std::vector<std::uint8_t> payload;
    Serializer out(payload);
    const std::size_t length = out.begin_length();
    write_bytes(out, output.data);
    out.write_u32(output.returnCode);
    out.end_length(length);
    return payload;
}

ddd::getDiagnosticData::Output decode_getDiagnosticData_output(const std::vector<std::uint8_t>& payload)
{
    Deserializer in(payload.data(), payload.size());
    ddd::getDiagnosticData::Output output;
    in.open_record();
    output.data = read_bytes(in);
    output.returnCode = in.read_u32();
    in.close_record();
    return output;
}

std::vector<std::uint8_t> encode(const datatypes::DT_dataValuesHash& value)
{
    std::vector<std::uint8_t> payload;
    Serializer out(payload);
    const std::size_t length = out.begin_length();
    for (const auto& element : value) {
        write_element(out, element);
    }
    out.end_length(length);
    return payload;
}

datatypes::DT_dataValuesHash decode_dataValuesHash(const std::uint8_t* data, std::size_t size)
{
    Deserializer in(data, size);
    datatypes::DT_dataValuesHash value;
    in.open_record();
    while (in.remaining() > 0) {
        value.push_back(read_element(in));
    }
    in.close_record();
    return value;
}

}  // namespace serialization
}  // namespace diagnosticdatadistribution
}  // namespace services
}  // namespace lumo

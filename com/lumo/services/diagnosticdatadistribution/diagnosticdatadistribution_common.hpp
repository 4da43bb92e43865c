// SPDX-License-Identifier: Apache-2.0
#ifndef LUMO_SERVICES_DIAGNOSTICDATADISTRIBUTION_COMMON_HPP
#define LUMO_SERVICES_DIAGNOSTICDATADISTRIBUTION_COMMON_HPP

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace lumo {
namespace services {
namespace diagnosticdatadistribution {

constexpr const char* kServiceName = "lumo::services::diagnosticdatadistribution::DiagnosticDataDistribution";

namespace datatypes {
using DT_ListOfIds = std::vector<std::uint64_t>;

// Element of the dataValuesHash field. Members are optional and carried in TLV form.
struct DT_dataValuesHash_struct {
    std::optional<std::uint32_t> item1;
    std::optional<std::uint32_t> item2;
    std::optional<std::uint64_t> item3;

    // Tags of item1, item2, item3 (wire type in bits 14..12, data ID in bits 11..0).
    static constexpr std::uint16_t kTags[3] = {0x2000, 0x2000, 0x3000};
};

using DT_dataValuesHash = std::vector<DT_dataValuesHash_struct>;
}  // namespace datatypes

namespace DiagnosticDataDistribution {
namespace getDiagnosticDataValues {
struct Output {
    std::uint32_t field1 = 0;
    std::uint32_t field2 = 0;
    std::uint64_t field3 = 0;
    std::uint32_t field4 = 0;
    std::vector<std::uint8_t> dataValues;
    std::uint32_t returnCode = 0;
};
}  // namespace getDiagnosticDataValues

namespace getDiagnosticData {
struct Output {
    std::vector<std::uint8_t> data;
    std::uint32_t returnCode = 0;
};
}  // namespace getDiagnosticData
}  // namespace DiagnosticDataDistribution

// Payload layouts of the service: big-endian, 4-byte length fields counting bytes.
namespace serialization {
std::vector<std::uint8_t> encode_getDiagnosticDataValues_request(std::uint32_t arg, const datatypes::DT_ListOfIds& ids);
void decode_getDiagnosticDataValues_request(const std::vector<std::uint8_t>& payload, std::uint32_t& arg,
                                            datatypes::DT_ListOfIds& ids);
std::vector<std::uint8_t> encode(const DiagnosticDataDistribution::getDiagnosticDataValues::Output& output);
DiagnosticDataDistribution::getDiagnosticDataValues::Output decode_getDiagnosticDataValues_output(
    const std::uint8_t* data, std::size_t size);

std::vector<std::uint8_t> encode_getDiagnosticData_request(std::uint32_t first, std::uint32_t second);
void decode_getDiagnosticData_request(const std::vector<std::uint8_t>& payload, std::uint32_t& first,
                                      std::uint32_t& second);
std::vector<std::uint8_t> encode(const DiagnosticDataDistribution::getDiagnosticData::Output& output);
DiagnosticDataDistribution::getDiagnosticData::Output decode_getDiagnosticData_output(
    const std::vector<std::uint8_t>& payload);

std::vector<std::uint8_t> encode(const datatypes::DT_dataValuesHash& value);
datatypes::DT_dataValuesHash decode_dataValuesHash(const std::uint8_t* data, std::size_t size);
}  // namespace serialization

}  // namespace diagnosticdatadistribution
}  // namespace services
}  // namespace lumo

#endif

// SPDX-License-Identifier: Apache-2.0
// One entry point for every decoder that reads bytes from the network. The first byte
// chooses the decoder; decoders may reject input only by throwing or returning false.
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_common.hpp"
#include "vela/com/someip/message_header.hpp"
#include "vela/com/someip/sd_message.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    namespace ser = lumo::services::diagnosticdatadistribution::serialization;
    if (size == 0) {
        return 0;
    }
    const std::uint8_t* payload = data + 1;
    const std::size_t length = size - 1;
    try {
        switch (data[0] % 4) {
            case 0:
                (void)ser::decode_getDiagnosticDataValues_output(payload, length);
                break;
            case 1:
                (void)ser::decode_dataValuesHash(payload, length);
                break;
            case 2: {
                vela::com::someip::Sd_message message;
                std::string error;
                if (vela::com::someip::Sd_message::decode(payload, length, message, error)) {
                    (void)message.encode();
                }
                break;
            }
            default: {
                // A datagram of packed messages; discovery ones decoded as such.
                vela::com::someip::Datagram_reader reader(payload, length);
                vela::com::someip::Message_header header;
                const std::uint8_t* body = nullptr;
                std::size_t body_size = 0;
                while (reader.next(header, body, body_size)) {
                    vela::com::someip::Sd_message message;
                    std::string error;
                    if (header.service_id == vela::com::someip::kSdServiceId) {
                        (void)vela::com::someip::Sd_message::decode(body, body_size, message, error);
                    }
                }
                std::uint32_t arg = 0;
                lumo::services::diagnosticdatadistribution::datatypes::DT_ListOfIds ids;
                ser::decode_getDiagnosticDataValues_request(std::vector<std::uint8_t>(payload, payload + length), arg,
                                                            ids);
            }
        }
    } catch (const std::exception&) {
        // Rejected input is the expected outcome for most of the corpus.
    }
    return 0;
}

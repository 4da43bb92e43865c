// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_HANDLE_TYPE_HPP
#define VELA_COM_RUNTIME_HANDLE_TYPE_HPP

#include <cstdint>
#include <string>
#include <tuple>

#include "vela/com/runtime/endpoint.hpp"
#include "vela/com/runtime/fwd.hpp"

namespace vela {
namespace com {
namespace runtime {

// One offered service instance as seen by service discovery.
class HandleType {
public:
    HandleType() = default;
    HandleType(std::uint16_t service_id, std::uint16_t instance_id, std::uint8_t major, std::uint32_t minor,
               const Endpoint& endpoint)
        : service_id_(service_id), instance_id_(instance_id), major_(major), minor_(minor), endpoint_(endpoint)
    {
    }

    std::uint16_t service_id() const { return service_id_; }
    std::uint16_t instance_id() const { return instance_id_; }
    std::uint8_t major_version() const { return major_; }
    std::uint32_t minor_version() const { return minor_; }
    const Endpoint& endpoint() const { return endpoint_; }
    std::string to_string() const;

    friend bool operator==(const HandleType& a, const HandleType& b) { return a.key() == b.key(); }
    friend bool operator!=(const HandleType& a, const HandleType& b) { return !(a == b); }
    friend bool operator<(const HandleType& a, const HandleType& b) { return a.key() < b.key(); }

private:
    std::tuple<std::uint16_t, std::uint16_t, std::uint8_t, std::uint32_t, Endpoint> key() const
    {
        return std::make_tuple(service_id_, instance_id_, major_, minor_, endpoint_);
    }

    std::uint16_t service_id_ = 0;
    std::uint16_t instance_id_ = 0;
    std::uint8_t major_ = 0;
    std::uint32_t minor_ = 0;
    Endpoint endpoint_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

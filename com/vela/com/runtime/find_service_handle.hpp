// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_FIND_SERVICE_HANDLE_HPP
#define VELA_COM_RUNTIME_FIND_SERVICE_HANDLE_HPP

#include <cstdint>

#include "vela/com/runtime/fwd.hpp"

namespace vela {
namespace com {
namespace runtime {

// Identifies one running asynchronous search; StopFindService takes it back.
class FindServiceHandle {
public:
    FindServiceHandle() = default;
    explicit FindServiceHandle(std::uint64_t id) : id_(id) {}
    std::uint64_t id() const { return id_; }

    friend bool operator==(const FindServiceHandle& a, const FindServiceHandle& b) { return a.id_ == b.id_; }
    friend bool operator<(const FindServiceHandle& a, const FindServiceHandle& b) { return a.id_ < b.id_; }

private:
    std::uint64_t id_ = 0;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_RUNTIME_TYPES_HPP
#define VELA_COM_RUNTIME_RUNTIME_TYPES_HPP

#include <cstdint>

#include "vela/com/runtime/fwd.hpp"

namespace vela {
namespace com {
namespace runtime {

enum class SubscriptionState : std::uint8_t { kSubscribed, kNotSubscribed, kSubscriptionPending };

// kEvent: method calls are dispatched on middleware threads as they arrive, in parallel;
// kEventSingleThread: one after the other; kPoll: queued until ProcessNextMethodCall.
enum class MethodCallProcessingMode : std::uint8_t { kPoll = 0, kEvent = 1, kEventSingleThread = 2 };

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

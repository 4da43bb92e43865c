// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_SKELETON_BINDING_HPP
#define VELA_COM_RUNTIME_SKELETON_BINDING_HPP

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "vela/com/runtime/deployment.hpp"
#include "vela/com/runtime/instance_specifier.hpp"
#include "vela/com/runtime/runtime.hpp"
#include "vela/com/runtime/runtime_types.hpp"

namespace vela {
namespace com {
namespace runtime {

// The provider's end of one service instance: offer, event transmission and the
// dispatch of method calls according to the processing mode.
class Skeleton_binding {
public:
    // Decodes the request, runs the method and returns the encoded answer; throws on a payload it cannot decode.
    using Method = std::function<std::vector<std::uint8_t>(const std::vector<std::uint8_t>&)>;

    Skeleton_binding(const std::string& service_name, const InstanceSpecifier& instance, MethodCallProcessingMode mode);
    ~Skeleton_binding();
    Skeleton_binding(const Skeleton_binding&) = delete;
    Skeleton_binding& operator=(const Skeleton_binding&) = delete;

    void register_method(const std::string& method_name, Method method);
    void offer();
    void stop_offer();
    void send_event(const std::string& event_name, std::vector<std::uint8_t> payload);
    // kPoll: runs the oldest queued call; false when none was queued.
    bool process_next_method_call();
    // Waits until no method runs any more and refuses later ones; the skeleton's destructor calls it.
    void close();

    const Service_deployment& service() const { return service_; }
    std::uint16_t instance_id() const { return instance_id_; }

private:
    struct Dispatch;

    std::shared_ptr<Runtime> runtime_;
    Service_deployment service_;
    std::uint16_t instance_id_ = 0;
    std::shared_ptr<Dispatch> dispatch_;
    bool offered_ = false;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

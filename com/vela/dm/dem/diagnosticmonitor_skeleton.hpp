// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_DM_DEM_DIAGNOSTICMONITOR_SKELETON_HPP
#define VELA_DM_DEM_DIAGNOSTICMONITOR_SKELETON_HPP

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <vector>

#include "vela/com/runtime/instance_specifier.hpp"
#include "vela/com/runtime/runtime_types.hpp"
#include "vela/com/runtime/skeleton_binding.hpp"
#include "vela/dm/dem/diagnosticmonitor_common.hpp"

namespace vela {
namespace dm {
namespace dem {
namespace skeleton {

namespace events {
// MonitorAction: a one-byte payload, either sent as a value or written into a buffer
// obtained from Allocate and handed back to Send.
class MonitorAction {
public:
    using Buffer = std::vector<std::uint8_t>;

    explicit MonitorAction(com::runtime::Skeleton_binding& binding) : binding_(binding) {}
    void Send(MonitorActionType action);
    // An empty buffer with room for `size` bytes; append the payload and pass it to Send.
    Buffer Allocate(std::size_t size) const;
    void Send(Buffer payload);

private:
    com::runtime::Skeleton_binding& binding_;
};
}  // namespace events

class DiagnosticMonitorSkeleton {
public:
    DiagnosticMonitorSkeleton(com::runtime::InstanceSpecifier instance, com::runtime::MethodCallProcessingMode mode);
    virtual ~DiagnosticMonitorSkeleton();
    DiagnosticMonitorSkeleton(const DiagnosticMonitorSkeleton&) = delete;
    DiagnosticMonitorSkeleton& operator=(const DiagnosticMonitorSkeleton&) = delete;

    void OfferService();
    void StopOfferService();
    bool ProcessNextMethodCall();

    // Called on middleware threads; the answer is sent once the future is ready.
    virtual std::future<void> InitMonitor(InitMonitorReasonType reason) = 0;

private:
    std::unique_ptr<com::runtime::Skeleton_binding> binding_;

public:
    events::MonitorAction MonitorAction;
};

}  // namespace skeleton
}  // namespace dem
}  // namespace dm
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#include "vela/dm/dem/diagnosticmonitor_skeleton.hpp"

#include "vela/com/someip/deserializer.hpp"

namespace vela {
namespace dm {
namespace dem {
namespace skeleton {

void events::MonitorAction::Send(MonitorActionType action)
{
    Buffer payload = Allocate(1);
    payload.push_back(static_cast<std::uint8_t>(action));
    Send(std::move(payload));
}

events::MonitorAction::Buffer events::MonitorAction::Allocate(std::size_t size) const
{
    Buffer buffer;
    buffer.reserve(size);
    return buffer;
}

void events::MonitorAction::Send(Buffer payload)
{
    binding_.send_event("MonitorAction", std::move(payload));
}

DiagnosticMonitorSkeleton::DiagnosticMonitorSkeleton(com::runtime::InstanceSpecifier instance,
                                                     com::runtime::MethodCallProcessingMode mode)
    : binding_(std::make_unique<com::runtime::Skeleton_binding>(kDiagnosticMonitorServiceName, instance, mode)),
      MonitorAction(*binding_)
{
    binding_->register_method("InitMonitor", [this](const std::vector<std::uint8_t>& payload) {
        com::someip::Deserializer in(payload.data(), payload.size());
        const auto reason = static_cast<InitMonitorReasonType>(in.read_u8());
        InitMonitor(reason).get();
        return std::vector<std::uint8_t>{};
    });
}

DiagnosticMonitorSkeleton::~DiagnosticMonitorSkeleton()
{
    binding_->stop_offer();
    binding_->close();
}

void DiagnosticMonitorSkeleton::OfferService()
{
    binding_->offer();
}

void DiagnosticMonitorSkeleton::StopOfferService()
{
    binding_->stop_offer();
}

bool DiagnosticMonitorSkeleton::ProcessNextMethodCall()
{
    return binding_->process_next_method_call();
}

}  // namespace skeleton
}  // namespace dem
}  // namespace dm
}  // namespace vela

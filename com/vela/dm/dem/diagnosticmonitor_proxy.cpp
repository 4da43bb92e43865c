// SPDX-License-Identifier: Apache-2.0
#include "vela/dm/dem/diagnosticmonitor_proxy.hpp"

#include "vela/com/someip/deserializer.hpp"

namespace vela {
namespace dm {
namespace dem {
namespace proxy {

using com::runtime::Proxy_binding;

events::MonitorAction::MonitorAction(std::shared_ptr<Proxy_binding> binding)
    : Proxy_event(std::move(binding), "MonitorAction", [](const std::vector<std::uint8_t>& payload) {
          com::someip::Deserializer in(payload.data(), payload.size());
          return static_cast<MonitorActionType>(in.read_u8());
      })
{
}

methods::InitMonitor::InitMonitor(std::shared_ptr<Proxy_binding> binding)
    : Proxy_method(std::move(binding), "InitMonitor", [](const std::vector<std::uint8_t>&) { return true; })
{
}

std::future<void> methods::InitMonitor::operator()(InitMonitorReasonType reason)
{
    return call_without_output({static_cast<std::uint8_t>(reason)});
}

com::runtime::FindServiceHandle DiagnosticMonitorProxy::StartFindService(
    std::function<void(com::runtime::ServiceHandleContainer<HandleType>)> handler,
    com::runtime::InstanceSpecifier instance)
{
    return Proxy_binding::start_find(kDiagnosticMonitorServiceName, std::move(handler), instance);
}

void DiagnosticMonitorProxy::StopFindService(com::runtime::FindServiceHandle handle)
{
    Proxy_binding::stop_find(handle);
}

DiagnosticMonitorProxy::DiagnosticMonitorProxy(const HandleType& handle)
    : binding_(std::make_shared<Proxy_binding>(kDiagnosticMonitorServiceName, handle)),
      MonitorAction(binding_),
      InitMonitor(binding_)
{
}

}  // namespace proxy
}  // namespace dem
}  // namespace dm
}  // namespace vela

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_DM_DEM_DIAGNOSTICMONITOR_PROXY_HPP
#define VELA_DM_DEM_DIAGNOSTICMONITOR_PROXY_HPP

#include <functional>
#include <future>
#include <memory>

#include "vela/com/runtime/find_service_handle.hpp"
#include "vela/com/runtime/handle_type.hpp"
#include "vela/com/runtime/instance_specifier.hpp"
#include "vela/com/runtime/proxy_binding.hpp"
#include "vela/com/runtime/proxy_event.hpp"
#include "vela/com/runtime/proxy_method.hpp"
#include "vela/dm/dem/diagnosticmonitor_common.hpp"

namespace vela {
namespace dm {
namespace dem {
namespace proxy {

namespace events {
class MonitorAction : public com::runtime::Proxy_event<MonitorActionType> {
public:
    explicit MonitorAction(std::shared_ptr<com::runtime::Proxy_binding> binding);
};
}  // namespace events

namespace methods {
// The answer carries no value; the future is ready once the monitor has handled the call.
class InitMonitor : public com::runtime::Proxy_method<bool> {
public:
    explicit InitMonitor(std::shared_ptr<com::runtime::Proxy_binding> binding);
    std::future<void> operator()(InitMonitorReasonType reason);
};
}  // namespace methods

class DiagnosticMonitorProxy {
public:
    using HandleType = com::runtime::HandleType;

    static com::runtime::FindServiceHandle StartFindService(
        std::function<void(com::runtime::ServiceHandleContainer<HandleType>)> handler,
        com::runtime::InstanceSpecifier instance);
    static void StopFindService(com::runtime::FindServiceHandle handle);

    explicit DiagnosticMonitorProxy(const HandleType& handle);
    DiagnosticMonitorProxy(const DiagnosticMonitorProxy&) = delete;
    DiagnosticMonitorProxy& operator=(const DiagnosticMonitorProxy&) = delete;

    const HandleType& GetHandle() const { return binding_->handle(); }

private:
    std::shared_ptr<com::runtime::Proxy_binding> binding_;

public:
    events::MonitorAction MonitorAction;
    methods::InitMonitor InitMonitor;
};

}  // namespace proxy
}  // namespace dem
}  // namespace dm
}  // namespace vela

#endif

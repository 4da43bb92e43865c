// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/proxy_binding.hpp"

#include <stdexcept>

#include "vela/com/runtime/component_singleton.hpp"
#include "vela/com/someip/sd_message.hpp"

namespace vela {
namespace com {
namespace runtime {

namespace {
const Service_deployment& deployed(const Runtime& runtime, const std::string& service_name)
{
    const Service_deployment* service = runtime.service(service_name);
    if (service == nullptr) {
        throw std::runtime_error("no deployment for service " + service_name);
    }
    return *service;
}
}  // namespace

Proxy_binding::Proxy_binding(const std::string& service_name, const HandleType& handle)
    : runtime_(Component_singleton::acquire()),
      service_(deployed(*runtime_, service_name)),
      handle_(handle),
      strand_(runtime_->make_strand())
{
}

FindServiceHandle Proxy_binding::start_find(const std::string& service_name,
                                            std::function<void(ServiceHandleContainer<HandleType>)> handler,
                                            const InstanceSpecifier& instance)
{
    const auto runtime = Component_singleton::acquire();
    const Service_deployment& service = deployed(*runtime, service_name);
    std::uint16_t instance_id = someip::kAnyInstance;
    if (!service.instance_id(instance.ToString(), instance_id)) {
        throw std::runtime_error("unknown instance specifier " + instance.ToString() + " for " + service_name);
    }
    if (!handler) {
        throw std::invalid_argument("StartFindService needs a handler");
    }
    return FindServiceHandle(runtime->start_find(service.service_id, instance_id, service.major, std::move(handler)));
}

void Proxy_binding::stop_find(FindServiceHandle handle)
{
    const auto runtime = Component_singleton::current();
    if (runtime) {
        runtime->stop_find(handle.id());
    }
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

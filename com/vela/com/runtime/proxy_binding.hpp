// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_PROXY_BINDING_HPP
#define VELA_COM_RUNTIME_PROXY_BINDING_HPP

#include <functional>
#include <memory>
#include <string>

#include "vela/com/runtime/deployment.hpp"
#include "vela/com/runtime/find_service_handle.hpp"
#include "vela/com/runtime/handle_type.hpp"
#include "vela/com/runtime/instance_specifier.hpp"
#include "vela/com/runtime/runtime.hpp"
#include "vela/com/runtime/strand.hpp"

namespace vela {
namespace com {
namespace runtime {

// What the members of one proxy share: the runtime, the service's deployment, the
// instance it talks to and the strand that serialises its handlers.
class Proxy_binding {
public:
    Proxy_binding(const std::string& service_name, const HandleType& handle);

    static FindServiceHandle start_find(const std::string& service_name,
                                        std::function<void(ServiceHandleContainer<HandleType>)> handler,
                                        const InstanceSpecifier& instance);
    static void stop_find(FindServiceHandle handle);

    const std::shared_ptr<Runtime>& runtime() const { return runtime_; }
    const Service_deployment& service() const { return service_; }
    const HandleType& handle() const { return handle_; }
    const std::shared_ptr<Strand>& strand() const { return strand_; }

private:
    std::shared_ptr<Runtime> runtime_;
    Service_deployment service_;
    HandleType handle_;
    std::shared_ptr<Strand> strand_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

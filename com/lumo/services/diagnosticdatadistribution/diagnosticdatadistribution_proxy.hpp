// SPDX-License-Identifier: Apache-2.0
#ifndef LUMO_SERVICES_DIAGNOSTICDATADISTRIBUTION_PROXY_HPP
#define LUMO_SERVICES_DIAGNOSTICDATADISTRIBUTION_PROXY_HPP

#include <functional>
#include <future>
#include <memory>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_common.hpp"
#include "vela/com/runtime/find_service_handle.hpp"
#include "vela/com/runtime/handle_type.hpp"
#include "vela/com/runtime/instance_specifier.hpp"
#include "vela/com/runtime/proxy_binding.hpp"
#include "vela/com/runtime/proxy_event.hpp"
#include "vela/com/runtime/proxy_method.hpp"
#include "vela/com/runtime/runtime_types.hpp"

namespace lumo {
namespace services {
namespace diagnosticdatadistribution {
namespace proxy {

namespace fields {
class dataValuesHash : public vela::com::runtime::Proxy_event<datatypes::DT_dataValuesHash> {
public:
    explicit dataValuesHash(std::shared_ptr<vela::com::runtime::Proxy_binding> binding);
};
}  // namespace fields

namespace methods {
class getDiagnosticDataValues
    : public vela::com::runtime::Proxy_method<DiagnosticDataDistribution::getDiagnosticDataValues::Output> {
public:
    using Output = DiagnosticDataDistribution::getDiagnosticDataValues::Output;
    explicit getDiagnosticDataValues(std::shared_ptr<vela::com::runtime::Proxy_binding> binding);
    std::future<Output> operator()(std::uint32_t arg, const datatypes::DT_ListOfIds& ids);
};

class getDiagnosticData
    : public vela::com::runtime::Proxy_method<DiagnosticDataDistribution::getDiagnosticData::Output> {
public:
    using Output = DiagnosticDataDistribution::getDiagnosticData::Output;
    explicit getDiagnosticData(std::shared_ptr<vela::com::runtime::Proxy_binding> binding);
    std::future<Output> operator()(std::uint32_t first, std::uint32_t second);
};
}  // namespace methods

class DiagnosticDataDistributionProxy {
public:
    using HandleType = vela::com::runtime::HandleType;

    // The handler runs on a middleware thread each time the set of offered instances
    // changes (an empty container when the service is no longer offered).
    static vela::com::runtime::FindServiceHandle StartFindService(
        std::function<void(vela::com::runtime::ServiceHandleContainer<HandleType>)> handler,
        vela::com::runtime::InstanceSpecifier instance);
    // No handler call runs or starts after this returns.
    static void StopFindService(vela::com::runtime::FindServiceHandle handle);

    explicit DiagnosticDataDistributionProxy(const HandleType& handle);
    DiagnosticDataDistributionProxy(const DiagnosticDataDistributionProxy&) = delete;
    DiagnosticDataDistributionProxy& operator=(const DiagnosticDataDistributionProxy&) = delete;

    const HandleType& GetHandle() const { return binding_->handle(); }

private:
    std::shared_ptr<vela::com::runtime::Proxy_binding> binding_;

public:
    fields::dataValuesHash dataValuesHash;
    methods::getDiagnosticDataValues getDiagnosticDataValues;
    methods::getDiagnosticData getDiagnosticData;
};

}  // namespace proxy
}  // namespace diagnosticdatadistribution
}  // namespace services
}  // namespace lumo

#endif

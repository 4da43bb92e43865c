// SPDX-License-Identifier: Apache-2.0
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"

namespace lumo {
namespace services {
namespace diagnosticdatadistribution {
namespace proxy {

using vela::com::runtime::Proxy_binding;

fields::dataValuesHash::dataValuesHash(std::shared_ptr<Proxy_binding> binding)
    : Proxy_event(std::move(binding), "dataValuesHash", [](const std::vector<std::uint8_t>& payload) {
          return serialization::decode_dataValuesHash(payload.data(), payload.size());
      })
{
}

methods::getDiagnosticDataValues::getDiagnosticDataValues(std::shared_ptr<Proxy_binding> binding)
    : Proxy_method(std::move(binding), "getDiagnosticDataValues", [](const std::vector<std::uint8_t>& payload) {
          return serialization::decode_getDiagnosticDataValues_output(payload.data(), payload.size());
      })
{
}

std::future<methods::getDiagnosticDataValues::Output> methods::getDiagnosticDataValues::operator()(
    std::uint32_t arg, const datatypes::DT_ListOfIds& ids)
{
    return call(serialization::encode_getDiagnosticDataValues_request(arg, ids));
}

methods::getDiagnosticData::getDiagnosticData(std::shared_ptr<Proxy_binding> binding)
    : Proxy_method(std::move(binding), "getDiagnosticData", serialization::decode_getDiagnosticData_output)
{
}

std::future<methods::getDiagnosticData::Output> methods::getDiagnosticData::operator()(std::uint32_t first,
                                                                                       std::uint32_t second)
{
    return call(serialization::encode_getDiagnosticData_request(first, second));
}

vela::com::runtime::FindServiceHandle DiagnosticDataDistributionProxy::StartFindService(
    std::function<void(vela::com::runtime::ServiceHandleContainer<HandleType>)> handler,
    vela::com::runtime::InstanceSpecifier instance)
{
    return Proxy_binding::start_find(kServiceName, std::move(handler), instance);
}

void DiagnosticDataDistributionProxy::StopFindService(vela::com::runtime::FindServiceHandle handle)
{
    Proxy_binding::stop_find(handle);
}

DiagnosticDataDistributionProxy::DiagnosticDataDistributionProxy(const HandleType& handle)
    : binding_(std::make_shared<Proxy_binding>(kServiceName, handle)),
      dataValuesHash(binding_),
      getDiagnosticDataValues(binding_),
      getDiagnosticData(binding_)
{
}

}  // namespace proxy
}  // namespace diagnosticdatadistribution
}  // namespace services
}  // namespace lumo

// SPDX-License-Identifier: Apache-2.0
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_skeleton.hpp"

namespace lumo {
namespace services {
namespace diagnosticdatadistribution {
namespace skeleton {

void fields::dataValuesHash::Update(const datatypes::DT_dataValuesHash& value)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        value_ = value;
    }
    binding_.send_event("dataValuesHash", serialization::encode(value));
}

datatypes::DT_dataValuesHash fields::dataValuesHash::current() const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return value_;
}

DiagnosticDataDistributionSkeleton::DiagnosticDataDistributionSkeleton(
    vela::com::runtime::InstanceSpecifier instance, vela::com::runtime::MethodCallProcessingMode mode)
    : binding_(std::make_unique<vela::com::runtime::Skeleton_binding>(kServiceName, instance, mode)),
      dataValuesHash(*binding_)
{
    binding_->register_method("getDiagnosticDataValues", [this](const std::vector<std::uint8_t>& payload) {
        std::uint32_t arg = 0;
        datatypes::DT_ListOfIds ids;
        serialization::decode_getDiagnosticDataValues_request(payload, arg, ids);
        return serialization::encode(getDiagnosticDataValues(arg, ids).get());
    });
    binding_->register_method("getDiagnosticData", [this](const std::vector<std::uint8_t>& payload) {
        std::uint32_t first = 0;
        std::uint32_t second = 0;
        serialization::decode_getDiagnosticData_request(payload, first, second);
        return serialization::encode(getDiagnosticData(first, second).get());
    });
    binding_->register_method("dataValuesHash.Get", [this](const std::vector<std::uint8_t>&) {
        return serialization::encode(dataValuesHash.current());
    });
}

DiagnosticDataDistributionSkeleton::~DiagnosticDataDistributionSkeleton()
{
    binding_->stop_offer();
    binding_->close();
}

void DiagnosticDataDistributionSkeleton::OfferService()
{
    binding_->offer();
}

void DiagnosticDataDistributionSkeleton::StopOfferService()
{
    binding_->stop_offer();
}

bool DiagnosticDataDistributionSkeleton::ProcessNextMethodCall()
{
    return binding_->process_next_method_call();
}

}  // namespace skeleton
}  // namespace diagnosticdatadistribution
}  // namespace services
}  // namespace lumo

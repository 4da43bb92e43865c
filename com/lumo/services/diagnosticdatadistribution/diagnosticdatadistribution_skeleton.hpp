// SPDX-License-Identifier: Apache-2.0
#ifndef LUMO_SERVICES_DIAGNOSTICDATADISTRIBUTION_SKELETON_HPP
#define LUMO_SERVICES_DIAGNOSTICDATADISTRIBUTION_SKELETON_HPP

#include <future>
#include <memory>
#include <mutex>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_common.hpp"
#include "vela/com/runtime/instance_specifier.hpp"
#include "vela/com/runtime/runtime_types.hpp"
#include "vela/com/runtime/skeleton_binding.hpp"

namespace lumo {
namespace services {
namespace diagnosticdatadistribution {
namespace skeleton {

namespace fields {
// The provider's end of the field: Update stores the value and notifies the subscribers;
// new subscribers and Get requests receive the stored value.
class dataValuesHash {
public:
    explicit dataValuesHash(vela::com::runtime::Skeleton_binding& binding) : binding_(binding) {}
    void Update(const datatypes::DT_dataValuesHash& value);
    datatypes::DT_dataValuesHash current() const;

private:
    vela::com::runtime::Skeleton_binding& binding_;
    mutable std::mutex mutex_;
    datatypes::DT_dataValuesHash value_;
};
}  // namespace fields

class DiagnosticDataDistributionSkeleton {
public:
    using getDiagnosticDataValuesOutput = DiagnosticDataDistribution::getDiagnosticDataValues::Output;
    using getDiagnosticDataOutput = DiagnosticDataDistribution::getDiagnosticData::Output;

    DiagnosticDataDistributionSkeleton(
        vela::com::runtime::InstanceSpecifier instance,
        vela::com::runtime::MethodCallProcessingMode mode = vela::com::runtime::MethodCallProcessingMode::kEvent);
    virtual ~DiagnosticDataDistributionSkeleton();
    DiagnosticDataDistributionSkeleton(const DiagnosticDataDistributionSkeleton&) = delete;
    DiagnosticDataDistributionSkeleton& operator=(const DiagnosticDataDistributionSkeleton&) = delete;

    void OfferService();
    void StopOfferService();
    bool ProcessNextMethodCall();

    // Called on middleware threads.
    virtual std::future<getDiagnosticDataValuesOutput> getDiagnosticDataValues(std::uint32_t arg,
                                                                               const datatypes::DT_ListOfIds& ids) = 0;
    virtual std::future<getDiagnosticDataOutput> getDiagnosticData(std::uint32_t first, std::uint32_t second) = 0;

private:
    std::unique_ptr<vela::com::runtime::Skeleton_binding> binding_;

public:
    fields::dataValuesHash dataValuesHash;
};

}  // namespace skeleton
}  // namespace diagnosticdatadistribution
}  // namespace services
}  // namespace lumo

#endif

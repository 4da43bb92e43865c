// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DLT_ACTIVATION_I_DLT_ACTIVATION_FLAG_OBSERVER_HPP
#define STRATA_DLT_ACTIVATION_I_DLT_ACTIVATION_FLAG_OBSERVER_HPP

#include <cstdint>
#include <memory>

#include "vela/com/runtime/fwd.hpp"

class IDLTActivationFlagObserver {
public:
    using Proxy = lumo::services::diagnosticdatadistribution::proxy::DiagnosticDataDistributionProxy;
    using Handle = vela::com::runtime::HandleType;
    using Handles = vela::com::runtime::ServiceHandleContainer<Handle>;
    using FindServiceHandle = vela::com::runtime::FindServiceHandle;

    virtual void setProxy(const std::shared_ptr<Proxy>& proxy) = 0;
    virtual std::shared_ptr<Proxy> getProxy() = 0;
    virtual void setFindServiceHandle(const std::shared_ptr<FindServiceHandle>& handle) = 0;
    virtual std::shared_ptr<FindServiceHandle> getFindServiceHandle() = 0;
    virtual void findServiceCallback() = 0;
    virtual void startFindService() = 0;
    virtual void StopConnectAsynchronously() = 0;
    virtual void findServiceStart(const Handles& handles) = 0;

protected:
    // Never deleted through this interface: the one observer is a static object.
    ~IDLTActivationFlagObserver() = default;
};

// One getDiagnosticDataValues exchange for the activation value; sets the flags.
void request_dlt_flag(IDLTActivationFlagObserver& observer);
void updateDltFlagFromService(IDLTActivationFlagObserver& observer);
// Called every 100 ms by the main loop; consults the marker file while the service is
// unreachable.
void check_dlt_flag_file(std::uint8_t kind, std::uint32_t& counter, IDLTActivationFlagObserver& observer);
// Unsubscribes the current proxy's dataValuesHash notification; false when there is no
// proxy.
bool unsubscribe_data_values_hash(IDLTActivationFlagObserver& observer);

#endif

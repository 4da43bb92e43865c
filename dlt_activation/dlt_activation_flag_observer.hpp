// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DLT_ACTIVATION_DLT_ACTIVATION_FLAG_OBSERVER_HPP
#define STRATA_DLT_ACTIVATION_DLT_ACTIVATION_FLAG_OBSERVER_HPP

#include <memory>
#include <mutex>

#include "dlt_activation/i_dlt_activation_flag_observer.hpp"

// Follows the diagnostic data distribution service: searches it, subscribes to its
// dataValuesHash notification and asks for the activation value whenever the service is
// found or notifies. The search and notification handlers run on middleware threads; the
// proxy and the search handle are only ever copied out under the mutex, so a handler
// keeps the proxy it works with alive even when a find result replaces it meanwhile.
class DLTActivationFlagObserver final : public IDLTActivationFlagObserver {
public:
    DLTActivationFlagObserver() = default;
    ~DLTActivationFlagObserver();
    DLTActivationFlagObserver(const DLTActivationFlagObserver&) = delete;
    DLTActivationFlagObserver& operator=(const DLTActivationFlagObserver&) = delete;

    void setProxy(const std::shared_ptr<Proxy>& proxy) override;
    std::shared_ptr<Proxy> getProxy() override;
    void setFindServiceHandle(const std::shared_ptr<FindServiceHandle>& handle) override;
    std::shared_ptr<FindServiceHandle> getFindServiceHandle() override;
    void findServiceCallback() override;
    void startFindService() override;
    void StopConnectAsynchronously() override;
    void findServiceStart(const Handles& handles) override;

private:
    void receiveDataValuesHash();

    std::shared_ptr<Proxy> proxy_;
    std::mutex mutex_;
    std::shared_ptr<FindServiceHandle> find_service_handle_;
};

#endif

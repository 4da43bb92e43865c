#ifndef STRATA_DLT_ACTIVATION_TEST_FAKE_OBSERVER_HPP
#define STRATA_DLT_ACTIVATION_TEST_FAKE_OBSERVER_HPP

#include <memory>

#include "dlt_activation/i_dlt_activation_flag_observer.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "vela/com/runtime/find_service_handle.hpp"

// An observer whose connection state a test sets directly; searches and find results are
// recorded, not performed.
class FakeObserver final : public IDLTActivationFlagObserver {
public:
    void setProxy(const std::shared_ptr<Proxy>& value) override { proxy = value; }
    std::shared_ptr<Proxy> getProxy() override { return proxy; }
    void setFindServiceHandle(const std::shared_ptr<FindServiceHandle>& value) override { handle = value; }
    std::shared_ptr<FindServiceHandle> getFindServiceHandle() override { return handle; }
    void findServiceCallback() override {}
    void startFindService() override { ++searches_started; }
    void StopConnectAsynchronously() override { handle.reset(); }
    void findServiceStart(const Handles&) override {}

    std::shared_ptr<Proxy> proxy;
    std::shared_ptr<FindServiceHandle> handle;
    int searches_started{0};
};

#endif

// SPDX-License-Identifier: Apache-2.0
#include "dlt_activation/dlt_activation_flag_observer.hpp"

#include <ara/log/logging.hpp>

#include <exception>
#include <string>
#include <utility>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "support/error_line.hpp"

namespace {
using ProxyClass = IDLTActivationFlagObserver::Proxy;

// The consumed service's instance, as the deployment knows it.
const char* const service_instance = "1";

// Messages an integrator needs in the DLT log as well as on the console.
void log_both(const std::string& text)
{
    ara::log::LogError() << text;
    write_error_line(text);
}
}  // namespace

DLTActivationFlagObserver::~DLTActivationFlagObserver() = default;

void DLTActivationFlagObserver::setProxy(const std::shared_ptr<Proxy>& proxy)
{
    std::lock_guard<std::mutex> lock(mutex_);
    proxy_ = proxy;
}

std::shared_ptr<IDLTActivationFlagObserver::Proxy> DLTActivationFlagObserver::getProxy()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return proxy_;
}

void DLTActivationFlagObserver::setFindServiceHandle(const std::shared_ptr<FindServiceHandle>& handle)
{
    std::lock_guard<std::mutex> lock(mutex_);
    find_service_handle_ = handle;
}

std::shared_ptr<IDLTActivationFlagObserver::FindServiceHandle> DLTActivationFlagObserver::getFindServiceHandle()
{
    std::lock_guard<std::mutex> lock(mutex_);
    return find_service_handle_;
}

void DLTActivationFlagObserver::startFindService()
{
    StopConnectAsynchronously();
    const vela::com::runtime::InstanceSpecifier instance{service_instance};
    log_both("LAUD : LAUD_startFindService: Instance ID 1 ");

    std::shared_ptr<FindServiceHandle> handle;
    try {
        handle = std::make_shared<FindServiceHandle>(ProxyClass::StartFindService(
            [this](Handles handles) {
                log_both("LAUD : Callback for LAUD_startFindService: Instance ID 1 ");
                findServiceStart(handles);
            },
            instance));
    } catch (const std::exception& error) {
        write_error_line(std::string("LAUD : LAUD_startFindService: Caught an exception ") + error.what());
    } catch (...) {
        write_error_line("LAUD : LAUD_startFindService: Unknown exception for instance ID 1 ");
    }
    log_both(handle ? "LAUD : LAUD_startFindService: handle is OK " : "LAUD : LAUD_startFindService: handle is NULL ");
    setFindServiceHandle(handle);
}

void DLTActivationFlagObserver::StopConnectAsynchronously()
{
    log_both("LAUD : StopConnectAsynchronously");
    std::shared_ptr<FindServiceHandle> handle;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        handle = std::move(find_service_handle_);
        find_service_handle_.reset();
    }
    if (handle) {
        log_both("LAUD : StopConnectAsynchronously: Instance ID 1 ");
        ProxyClass::StopFindService(*handle);
    }
}

void DLTActivationFlagObserver::findServiceStart(const Handles& handles)
{
    if (const std::shared_ptr<Proxy> previous = getProxy()) {
        previous->dataValuesHash.Unsubscribe();
    }
    setProxy(nullptr);
    if (handles.empty()) {
        log_both("LAUD :LAUD_findServiceStart: Service stopped for instance ID 1 ");
    } else {
        const std::string offered = "LAUD :LAUD_findServiceStart: Service offered for instance ID 1 ";
        write_error_line(offered);
        ara::log::LogError() << offered;
        // Only one instance 1 exists in a correct deployment; further handles are ignored.
        setProxy(std::make_shared<Proxy>(handles.front()));
    }
    findServiceCallback();
}

void DLTActivationFlagObserver::findServiceCallback()
{
    const std::shared_ptr<Proxy> proxy = getProxy();
    if (!proxy) {
        write_error_line("DLT Launcher LAUD_findServiceCallback : no proxy");
        return;
    }
    proxy->dataValuesHash.SetReceiveHandler([this] { receiveDataValuesHash(); });
    write_error_line("DLT Launcher LAUD_findServiceCallback : Subscribe dataValuesHash");
    if (proxy->dataValuesHash.GetSubscriptionState() == vela::com::runtime::SubscriptionState::kNotSubscribed) {
        proxy->dataValuesHash.Subscribe(1);
    }
    // Fetch the flag now rather than waiting for the first notification.
    updateDltFlagFromService(*this);
}

void DLTActivationFlagObserver::receiveDataValuesHash()
{
    const std::shared_ptr<Proxy> proxy = getProxy();
    if (!proxy) {
        return;
    }
    // The notification is only a trigger; its content is not evaluated.
    (void)proxy->dataValuesHash.GetNewSamples([](const auto&) {}, 1);
    updateDltFlagFromService(*this);
}

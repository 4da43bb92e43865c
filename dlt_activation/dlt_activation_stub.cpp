// Placeholder until the activation flag observer lands: the service is never found and
// the marker file is never read.
#include "dlt_activation/dlt_activation_flag_observer.hpp"
#include "dlt_activation/dlt_flags.hpp"

std::atomic<bool> dlt_pm_flag{true};
std::atomic<bool> flag_updated{false};
std::mutex dlt_request_mutex;

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
void DLTActivationFlagObserver::findServiceCallback() {}
void DLTActivationFlagObserver::startFindService() {}
void DLTActivationFlagObserver::StopConnectAsynchronously() {}
void DLTActivationFlagObserver::findServiceStart(const Handles&) {}

void request_dlt_flag(IDLTActivationFlagObserver&) {}
void updateDltFlagFromService(IDLTActivationFlagObserver&) {}
void check_dlt_flag_file(std::uint8_t, std::uint32_t&, IDLTActivationFlagObserver&) {}
bool unsubscribe_data_values_hash(IDLTActivationFlagObserver&)
{
    return false;
}

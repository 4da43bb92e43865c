// SPDX-License-Identifier: Apache-2.0
#include "dtc/service_cb.hpp"

#include <utility>

namespace {
const char* const service_name = "vela::dm::dem::DiagnosticMonitor";
const char* const service_version = "1.0";
}  // namespace

Service_cb::Service_cb(const std::string& name, std::function<void()> updateDTCcb)
    : BasicEndpoint(name, "Service"), name_(name), updateDTCcb_(std::move(updateDTCcb))
{
}

std::string Service_cb::GetServiceName() const
{
    return service_name;
}

std::string Service_cb::GetVersion() const
{
    return service_version;
}

std::shared_ptr<DMSAdapter> Service_cb::adapter()
{
    std::lock_guard<std::mutex> lock(adapter_mutex_);
    return adapter_;
}

bool Service_cb::Create()
{
    auto created = std::make_shared<DMSAdapter>(name_, updateDTCcb_);
    std::lock_guard<std::mutex> lock(adapter_mutex_);
    adapter_ = std::move(created);
    return true;
}

bool Service_cb::Delete()
{
    std::shared_ptr<DMSAdapter> released;
    {
        std::lock_guard<std::mutex> lock(adapter_mutex_);
        released = std::move(adapter_);
        adapter_.reset();
    }
    // The skeleton is destroyed here, outside the lock, unless a sender still holds it.
    return true;
}

bool Service_cb::Initialize()
{
    return true;
}

bool Service_cb::Uninitialize()
{
    return true;
}

bool Service_cb::Start()
{
    const std::shared_ptr<DMSAdapter> current = adapter();
    if (!current) {
        return false;
    }
    current->OfferService();
    return true;
}

bool Service_cb::Stop()
{
    // Also called to undo a start that never happened; withdrawing an offer that was not
    // made is harmless.
    const std::shared_ptr<DMSAdapter> current = adapter();
    if (current) {
        current->StopOfferService();
    }
    return true;
}

void Service_cb::send_monitor_action(vela::dm::dem::MonitorActionType action)
{
    if (const std::shared_ptr<DMSAdapter> current = adapter()) {
        current->SendMonitorAction(action);
    }
}

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_SERVICE_CB_HPP
#define STRATA_DTC_SERVICE_CB_HPP

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "dtc/dms_adapter.hpp"
#include "support/basic_endpoint.hpp"

// The diagnostic monitor as an endpoint: the adapter is created, offered, withdrawn and
// destroyed by the lifecycle steps.
class Service_cb : public BasicEndpoint {
public:
    Service_cb(const std::string& name, std::function<void()> updateDTCcb);

    std::string GetServiceName() const override;
    std::string GetVersion() const override;

protected:
    bool Create() override;
    bool Delete() override;
    bool Initialize() override;
    bool Uninitialize() override;
    bool Start() override;
    bool Stop() override;

    // Sends through the adapter while one exists; between stop and start nothing is sent.
    void send_monitor_action(vela::dm::dem::MonitorActionType action);

private:
    std::shared_ptr<DMSAdapter> adapter();

    std::string name_;
    std::function<void()> updateDTCcb_;
    // Guards the pointer only: InitMonitor handlers send through the adapter while the
    // main thread withdraws the offer, and withdrawing may wait for those handlers.
    std::mutex adapter_mutex_;
    std::shared_ptr<DMSAdapter> adapter_;
};

#endif

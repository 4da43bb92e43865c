// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_DM_SERVICE_HPP
#define STRATA_DTC_DM_SERVICE_HPP

#include <functional>
#include <string>

#include "dtc/diagnostic_monitor_service_interface.hpp"
#include "dtc/service_cb.hpp"

// The diagnostic monitor provider that the DTC service holds.
class DMService final : public Service_cb, public DiagnosticMonitorServiceInterface {
public:
    DMService(const std::string& name, std::function<void()> updateDTCcb);

    bool StartService() override;
    bool StopService() override;
    void SendMonitorAction(bool failed) override;
};

#endif

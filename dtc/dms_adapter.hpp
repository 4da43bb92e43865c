// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_DMS_ADAPTER_HPP
#define STRATA_DTC_DMS_ADAPTER_HPP

#include <functional>
#include <future>
#include <string>

#include "vela/dm/dem/diagnosticmonitor_skeleton.hpp"

// The provided diagnostic monitor on the wire: sends MonitorAction events and answers
// InitMonitor. An InitMonitor with kClear or kRestart asks for the current state again,
// which the update callback re-sends.
class DMSAdapter final : public vela::dm::dem::skeleton::DiagnosticMonitorSkeleton {
public:
    DMSAdapter(const std::string& name, std::function<void()> updateDTCcb);

    // Runs on a middleware thread.
    std::future<void> InitMonitor(vela::dm::dem::InitMonitorReasonType reason) override;

    void SendMonitorAction(vela::dm::dem::MonitorActionType action);

private:
    std::string name_;
    std::function<void()> updateDTCcb_;
};

#endif

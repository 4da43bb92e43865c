// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_DIAGNOSTIC_MONITOR_SERVICE_INTERFACE_HPP
#define STRATA_DTC_DIAGNOSTIC_MONITOR_SERVICE_INTERFACE_HPP

// The provided diagnostic monitor as the DTC service uses it.
class DiagnosticMonitorServiceInterface {
public:
    DiagnosticMonitorServiceInterface() = default;
    virtual ~DiagnosticMonitorServiceInterface() = default;
    DiagnosticMonitorServiceInterface(const DiagnosticMonitorServiceInterface&) = delete;
    DiagnosticMonitorServiceInterface& operator=(const DiagnosticMonitorServiceInterface&) = delete;
    DiagnosticMonitorServiceInterface(DiagnosticMonitorServiceInterface&&) = delete;
    DiagnosticMonitorServiceInterface& operator=(DiagnosticMonitorServiceInterface&&) = delete;

    // Brings the endpoint up; the service is offered when this returns true.
    virtual bool StartService() = 0;
    // Ends the offer and releases the endpoint.
    virtual bool StopService() = 0;
    // true reports the monitor as failed, false as passed.
    virtual void SendMonitorAction(bool failed) = 0;
};

#endif

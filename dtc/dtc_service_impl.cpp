// SPDX-License-Identifier: Apache-2.0
#include "dtc/dtc_service_impl.hpp"

#include <string>
#include <utility>

#include "dtc/dtc_names.hpp"
#include "support/error_line.hpp"
#include "support/logging.hpp"

DTCServiceImpl::DTCServiceImpl(std::shared_ptr<DiagnosticMonitorServiceInterface> monitor_service)
    : monitorService(std::move(monitor_service))
{
    log_info() << "+++++ DTCServiceImpl created ...";
}

DTCServiceImpl::~DTCServiceImpl()
{
    bool still_started = false;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        still_started = started;
    }
    if (still_started) {
        log_warn() << "+++++ DTCServiceImpl not deactivated ... ";
        const bool stopped = Shutdown();
        log_info() << "Result of shutdown for DTCService: " << (stopped ? "true" : "false");
    }
    log_info() << "+++++ DTCServiceImpl deleted ...";
    monitorService.reset();
}

bool DTCServiceImpl::Startup()
{
    log_info() << "+++++ DTCServiceImpl::Startup() ... ";
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (started) {
            log_info() << "+++++ DTCServiceImpl::Startup() not executed, already started ";
            return true;
        }
        started = true;
        hasLastState = false;
    }
    return monitorService->StartService();
}

bool DTCServiceImpl::Shutdown()
{
    log_info() << "+++++ DTCServiceImpl::Shutdown() ... ";
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!started) {
            log_info() << "+++++ DTCServiceImpl::Shutdown() not executed, already stopped ";
            return true;
        }
        started = false;
        hasLastState = false;
    }
    return monitorService->StopService();
}

bool DTCServiceImpl::SetDTCState(std::uint8_t state, bool forceSet)
{
    const std::string text = "===== DTCServiceImpl::SetDTCState()  state: " + std::to_string(state) +
                             " forceSet : " + std::to_string(static_cast<int>(forceSet));
    log_info() << text;
    write_error_line(text);

    std::lock_guard<std::mutex> lock(mutex_);
    if (!started) {
        log_warn() << "+++++ DTCServiceImpl::SetDTCState " << dtc_state_name(state)
                   << " not sent, because Service is not started ";
        return false;
    }
    const bool send = !hasLastState || forceSet || state != lastState;
    lastState = state;
    hasLastState = true;
    if (!send) {
        log_info() << "+++++ DTCServiceImpl::SetDTCState " << dtc_state_name(state) << " not sent ";
        return true;
    }
    const bool failed = state != dtc_state_passed;
    write_error_line(text + " is sent to DM ");
    log_info() << "+++++ DTCServiceImpl::SetDTCState " << dtc_state_name(state)
               << " MonitorActionType = " << monitor_action_name(failed ? 1 : 0) << " is sent to DM ";
    monitorService->SendMonitorAction(failed);
    return true;
}

bool DTCServiceImpl::GetDTCState(std::uint8_t& state)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (!hasLastState) {
        return false;
    }
    state = lastState;
    return true;
}

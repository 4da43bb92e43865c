// SPDX-License-Identifier: Apache-2.0
#include "dtc/dms_adapter.hpp"

#include <cstdint>
#include <utility>

#include "dtc/dtc_names.hpp"
#include "support/error_line.hpp"
#include "support/logging.hpp"

namespace {
using vela::dm::dem::InitMonitorReasonType;

// Only these two ask the monitor to report again; after a re-enabling the diagnostic
// manager still holds the last state, so nothing is re-sent on purpose.
bool asks_for_report(std::uint8_t reason)
{
    return reason == static_cast<std::uint8_t>(InitMonitorReasonType::kClear) ||
           reason == static_cast<std::uint8_t>(InitMonitorReasonType::kRestart);
}
}  // namespace

DMSAdapter::DMSAdapter(const std::string& name, std::function<void()> updateDTCcb)
    : DiagnosticMonitorSkeleton(vela::com::runtime::InstanceSpecifier(name),
                                vela::com::runtime::MethodCallProcessingMode::kEvent),
      name_(name),
      updateDTCcb_(std::move(updateDTCcb))
{
    const std::string created = "+++++ DMSkeletonAdapter::constructor() is called for " + name_;
    log_info() << created;
    write_error_line(created);
    const std::string callback = "+++++ DMSkeletonAdapter::Set updateDTCcb for " + name_ +
                                 (updateDTCcb_ ? " valid Callback is set" : " No Callback available");
    write_error_line(callback);
    log_info() << callback;
}

std::future<void> DMSAdapter::InitMonitor(vela::dm::dem::InitMonitorReasonType reason)
{
    const auto value = static_cast<std::uint8_t>(reason);
    const std::string text = "+++++ DMSkeletonAdapter::InitMonitor( " + std::to_string(value) + " = " +
                             init_monitor_reason_name(value) + ") is called for " + name_;
    log_info() << text;
    write_error_line(text);
    if (updateDTCcb_ && asks_for_report(value)) {
        updateDTCcb_();
        log_info() << "+++++ DMSkeletonAdapter::InitMonitor calls updateDTCcb for " << name_;
    }
    std::promise<void> done;
    done.set_value();
    return done.get_future();
}

void DMSAdapter::SendMonitorAction(vela::dm::dem::MonitorActionType action)
{
    // The event payload is exactly the one action byte.
    auto payload = MonitorAction.Allocate(1);
    payload.push_back(static_cast<std::uint8_t>(action));
    MonitorAction.Send(std::move(payload));
}

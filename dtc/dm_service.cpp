// SPDX-License-Identifier: Apache-2.0
#include "dtc/dm_service.hpp"

#include <utility>

DMService::DMService(const std::string& name, std::function<void()> updateDTCcb)
    : Service_cb(name, std::move(updateDTCcb))
{
}

bool DMService::StartService()
{
    return StartUp();
}

bool DMService::StopService()
{
    return ShutDown();
}

void DMService::SendMonitorAction(bool failed)
{
    send_monitor_action(failed ? vela::dm::dem::MonitorActionType::kFailed : vela::dm::dem::MonitorActionType::kPassed);
}

// SPDX-License-Identifier: Apache-2.0
#include "dtc/dtc_names.hpp"

#include <array>

namespace {
const std::array<std::string, 2> dtc_state_names{"DTC_PASSED", "DTC_FAILED"};
const std::array<std::string, 10> monitor_action_names{
    "kPassed",          "kFailed",           "kPrepassed",       "kPrefailed", "kFdcThresholdReached",
    "kResetTestFailed", "kFreezeDebouncing", "kResetDebouncing", "kPrestore",  "kClearPrestore"};
const std::array<std::string, 4> init_monitor_reason_names{"kClear", "kRestart", "kReenabled", "kStorageReenabled"};

const std::string unknown_dtc_state{"DTC state unknown"};
const std::string unknown_monitor_action{"MonitorAction unknown"};
const std::string unknown_init_monitor_reason{"InitMonitor reason unknown"};

template <std::size_t size>
const std::string& lookup(const std::array<std::string, size>& names, std::uint8_t value, const std::string& unknown)
{
    return value < names.size() ? names[value] : unknown;
}
}  // namespace

const std::string& dtc_state_name(std::uint8_t state)
{
    return lookup(dtc_state_names, state, unknown_dtc_state);
}

const std::string& monitor_action_name(std::uint8_t action)
{
    return lookup(monitor_action_names, action, unknown_monitor_action);
}

const std::string& init_monitor_reason_name(std::uint8_t reason)
{
    return lookup(init_monitor_reason_names, reason, unknown_init_monitor_reason);
}

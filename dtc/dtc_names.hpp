// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_DTC_NAMES_HPP
#define STRATA_DTC_DTC_NAMES_HPP

#include <cstdint>
#include <string>

// Names of the DTC states, monitor actions and InitMonitor reasons as they appear in the
// messages. A value outside a table gets a fixed "unknown" name rather than reading
// beyond it.
const std::string& dtc_state_name(std::uint8_t state);
const std::string& monitor_action_name(std::uint8_t action);
const std::string& init_monitor_reason_name(std::uint8_t reason);

constexpr std::uint8_t dtc_state_passed = 0;
constexpr std::uint8_t dtc_state_failed = 1;

#endif

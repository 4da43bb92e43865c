// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_PARTITION_DETECTION_HPP
#define STRATA_LAUNCHER_PARTITION_DETECTION_HPP

#include <cstdint>
#include <string>

#include "common/launcher_types.hpp"
#include "process/system_call_api_interface.hpp"

// Fills the configuration from the kind and the host name. 0 on success, 1 when the host
// name is unavailable or names no partition (the caller's exit status).
int configure(Launcher_configuration& configuration, std::uint8_t type, System_call_api_interface& api);

// Exact, case-sensitive match of the host name; stores 10 and returns false otherwise.
bool detect_partition(const std::string& hostname, std::uint8_t& partition);

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_PLAN_CHECK_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_PLAN_CHECK_HPP

#include <string>

#include "common/launcher_types.hpp"
#include "process/system_call_api_interface.hpp"

// Exit status of a configuration the launcher can't run with (sysexits' EX_CONFIG).
constexpr int exit_configuration = 78;

// Whether the launcher would accept the kind and find its partition from the host name
// that `api` reports, as it does at start; nothing else is looked at. On failure one line
// naming the cause is on standard error and the result is false.
bool check_configuration(const std::string& kind_text, System_call_api_interface& api,
                         Launcher_configuration& configuration);

#endif

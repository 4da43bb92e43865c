// SPDX-License-Identifier: Apache-2.0
#include "tools/launcher_plan/plan_check.hpp"

#include <cstdint>

#include "launcher/console.hpp"
#include "launcher/launcher_kinds.hpp"
#include "launcher/partition_detection.hpp"

bool check_configuration(const std::string& kind_text, System_call_api_interface& api,
                         Launcher_configuration& configuration)
{
    std::uint8_t type = launcher_type_unset;
    if (!launcher_type_from_text(kind_text.c_str(), type)) {
        console_line("strata-launcher-plan: no launcher kind \"" + kind_text +
                     "\" (0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE)");
        return false;
    }
    // The launcher's own detection writes its own one line when it fails.
    return configure(configuration, type, api) == 0;
}

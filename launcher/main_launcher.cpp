// SPDX-License-Identifier: Apache-2.0
#include "launcher/main_launcher.hpp"

#include "dlt_activation/i_dlt_activation_flag_observer.hpp"
#include "dtc/dtc_service.hpp"
#include "launcher/launcher_lifecycle.hpp"
#include "strategies/launcher_strategy_interface.hpp"

int main_launcher(int argc, char** argv, System_call_api_interface& api, IDLTActivationFlagObserver& observer)
{
    Launcher_lifecycle lifecycle(
        api, observer, {&Launcher_strategy_interface::createLauncherStrategy, &CreateDTCService, &check_dlt_flag_file});
    return lifecycle.run(argc, argv);
}

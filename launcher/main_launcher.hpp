// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_MAIN_LAUNCHER_HPP
#define STRATA_LAUNCHER_MAIN_LAUNCHER_HPP

#include "dlt_activation/i_dlt_activation_flag_observer.hpp"
#include "process/system_call_api_interface.hpp"

// The whole life of the launcher; the result is the process exit status.
int main_launcher(int argc, char** argv, System_call_api_interface& api, IDLTActivationFlagObserver& observer);

#endif

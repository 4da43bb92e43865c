// SPDX-License-Identifier: Apache-2.0
#include "dlt_activation/dlt_activation_flag_observer.hpp"
#include "launcher/main_launcher.hpp"
#include "process/system_call_api.hpp"

namespace {
// Both outlive main_launcher so that middleware threads still running at exit find them.
System_call_api system_call_api;
DLTActivationFlagObserver dlt_activation_flag_observer;
}  // namespace

int main(int argc, char** argv)
{
    return main_launcher(argc, argv, system_call_api, dlt_activation_flag_observer);
}

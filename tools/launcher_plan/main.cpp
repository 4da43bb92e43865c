// SPDX-License-Identifier: Apache-2.0
// strata-launcher-plan: what a launcher of one kind would run on this partition, made by
// the launcher's own strategy against a system that records instead of acting.
#include <iostream>
#include <string>
#include <vector>

#include "launcher/console.hpp"
#include "process/system_call_api.hpp"
#include "tools/launcher_plan/plan_check.hpp"
#include "tools/launcher_plan/plan_options.hpp"
#include "tools/launcher_plan/recording_system_call_api.hpp"

namespace {

constexpr int exit_usage = 64;

void print_usage()
{
    console_line("Usage: strata-launcher-plan KIND [--hostname NAME] [--root DIR] [--json] [--check]");
    console_line("KIND: 0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE");
}

}  // namespace

int main(int argc, char** argv)
{
    Plan_options options;
    std::string error;
    if (!Plan_options::parse(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        console_line("strata-launcher-plan: " + error);
        print_usage();
        return exit_usage;
    }
    System_call_api system;
    Launch_plan plan;
    Recording_system_call_api recorder(system, options.root, plan);
    if (options.hostname_given) {
        recorder.set_hostname(options.hostname);
    }
    Launcher_configuration configuration;
    if (!check_configuration(options.kind, recorder, configuration)) {
        return exit_configuration;
    }
    if (options.check) {
        return 0;
    }
    console_line("strata-launcher-plan: only --check is available in this build");
    return exit_usage;
}

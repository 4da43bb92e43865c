// SPDX-License-Identifier: Apache-2.0
// strata-launcher-plan: what a launcher of one kind would run on this partition, made by
// the launcher's own strategy against a system that records instead of acting.
#include <sys/stat.h>

#include <iostream>
#include <string>
#include <vector>

#include "launcher/console.hpp"
#include "process/system_call_api.hpp"
#include "strategies/directory_reader.hpp"
#include "tools/launcher_plan/launch_planner.hpp"
#include "tools/launcher_plan/plan_check.hpp"
#include "tools/launcher_plan/plan_options.hpp"
#include "tools/launcher_plan/plan_printer.hpp"
#include "tools/launcher_plan/recording_system_call_api.hpp"

namespace {

constexpr int exit_usage = 64;
constexpr int exit_no_input = 66;

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
    while (options.root.size() > 1 && options.root.back() == '/') {
        options.root.pop_back();
    }
    struct stat root {};
    if (!options.root.empty() && (::stat(options.root.c_str(), &root) != 0 || !S_ISDIR(root.st_mode))) {
        console_line("strata-launcher-plan: the root " + options.root + " is no folder");
        return exit_no_input;
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
    Directory_reader reader;
    Launch_planner planner(recorder, reader, options.root, plan);
    if (!planner.make(configuration)) {
        return exit_configuration;
    }
    if (options.json) {
        std::cout << Plan_printer::json(plan) << std::endl;
    } else {
        Plan_printer::print_text(plan, std::cout);
        std::cout << std::flush;
    }
    return 0;
}

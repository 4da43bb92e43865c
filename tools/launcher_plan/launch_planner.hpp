// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_LAUNCH_PLANNER_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_LAUNCH_PLANNER_HPP

#include <string>

#include "common/launcher_types.hpp"
#include "strategies/directory_reader_interface.hpp"
#include "strategies/launcher_strategy_interface.hpp"
#include "tools/launcher_plan/launch_plan.hpp"
#include "tools/launcher_plan/proc_address_source.hpp"
#include "tools/launcher_plan/recording_directory_reader.hpp"
#include "tools/launcher_plan/recording_system_call_api.hpp"

// Makes the plan of one pass: the launcher's own strategy for the configuration is
// prepared, started and stopped against the recording system, with its folder and
// address reads redirected below the image root.
class Launch_planner {
public:
    // `api` must record into `plan`; `reader` reads the real folders. Both must outlive this object.
    Launch_planner(Recording_system_call_api& api, Directory_reader_interface& reader, std::string root,
                   Launch_plan& plan);

    // False when the configuration has no strategy.
    bool make(const Launcher_configuration& configuration);

    // The launcher's console lines that tell how the pass went, without those of the
    // process machinery, whose pids here are only planned ones.
    static std::vector<std::string> strategy_lines(const std::string& captured);

private:
    void describe(Launcher_strategy_interface& strategy);
    void run(Launcher_strategy_interface* strategy);
    void note_activation(const Launcher_configuration& configuration);
    void complete_daemons();
    void settle_console(const std::string& captured);

    Recording_system_call_api& api;
    Launch_plan& plan;
    Recording_directory_reader directory_reader;
    Proc_address_source address_source;
    std::uint64_t readiness_limit{0};
    Stop_method stop_method;
};

#endif

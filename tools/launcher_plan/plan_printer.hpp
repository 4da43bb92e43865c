// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_PLAN_PRINTER_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_PLAN_PRINTER_HPP

#include <ostream>
#include <string>

#include "tools/launcher_plan/launch_plan.hpp"

// The plan for people (text) and for programs (JSON, documented in docs/launcher-plan.md).
class Plan_printer {
public:
    static void print_text(const Launch_plan& plan, std::ostream& out);
    static std::string json(const Launch_plan& plan);

    // Words joined by blanks, each quoted the shell's way where it needs it.
    static std::string quoted(const std::vector<std::string>& words);
};

#endif

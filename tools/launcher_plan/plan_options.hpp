// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_PLAN_OPTIONS_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_PLAN_OPTIONS_HPP

#include <string>
#include <vector>

// The command line of strata-launcher-plan: KIND [--hostname NAME] [--root DIR] [--json] [--check].
struct Plan_options {
    std::string kind;
    bool hostname_given{false};
    std::string hostname;
    std::string root;
    bool json{false};
    bool check{false};

    // False with a one-line reason in `error` when the words make no command line.
    static bool parse(const std::vector<std::string>& words, Plan_options& options, std::string& error);
};

#endif

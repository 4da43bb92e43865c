// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_LAUNCHER_PLAN_RECORDING_DIRECTORY_READER_HPP
#define STRATA_TOOLS_LAUNCHER_PLAN_RECORDING_DIRECTORY_READER_HPP

#include <string>

#include "strategies/directory_reader_interface.hpp"
#include "tools/launcher_plan/launch_plan.hpp"

// Reads folders below the image root through another reader and notes each one, with its
// entries, in the plan.
class Recording_directory_reader : public Directory_reader_interface {
public:
    // `reader` and `plan` must outlive this object.
    Recording_directory_reader(Directory_reader_interface& reader, std::string root, Launch_plan& plan);

    bool read_entry_names(const std::string& directory, std::vector<std::string>& names) override;

private:
    Directory_reader_interface& system_reader;
    std::string root;
    Launch_plan& plan;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#include "tools/launcher_plan/recording_directory_reader.hpp"

#include <utility>

Recording_directory_reader::Recording_directory_reader(Directory_reader_interface& reader, std::string root_directory,
                                                       Launch_plan& launch_plan)
    : system_reader(reader), root(std::move(root_directory)), plan(launch_plan)
{
}

bool Recording_directory_reader::read_entry_names(const std::string& directory, std::vector<std::string>& names)
{
    const std::size_t first = names.size();
    const bool found = system_reader.read_entry_names(root + directory, names);
    Planned_read read{directory, "folder", found, {}};
    for (std::size_t index = first; index < names.size(); ++index) {
        if (names[index] != "." && names[index] != "..") {
            read.entries.push_back(names[index]);
        }
    }
    plan.reads.push_back(std::move(read));
    return found;
}

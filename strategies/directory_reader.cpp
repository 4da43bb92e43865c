// SPDX-License-Identifier: Apache-2.0
#include "strategies/directory_reader.hpp"

#include <dirent.h>

bool Directory_reader::read_entry_names(const std::string& directory, std::vector<std::string>& names)
{
    DIR* stream = ::opendir(directory.c_str());
    if (stream == nullptr) {
        return false;
    }
    for (const dirent* entry = ::readdir(stream); entry != nullptr; entry = ::readdir(stream)) {
        names.emplace_back(entry->d_name);
    }
    (void)::closedir(stream);
    return true;
}

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_DIRECTORY_READER_INTERFACE_HPP
#define STRATA_STRATEGIES_DIRECTORY_READER_INTERFACE_HPP

#include <string>
#include <vector>

// Lists the entry names of a directory. Kept apart from the system call seam because the
// manifest and configuration searches depend on the order the file system hands out.
class Directory_reader_interface {
public:
    virtual ~Directory_reader_interface() = default;
    // Appends every entry name, "." and ".." included, in the order the directory yields
    // them; false when the directory can't be opened.
    virtual bool read_entry_names(const std::string& directory, std::vector<std::string>& names) = 0;
};

#endif

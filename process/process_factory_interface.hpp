// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_PROCESS_PROCESS_FACTORY_INTERFACE_HPP
#define STRATA_PROCESS_PROCESS_FACTORY_INTERFACE_HPP

#include <string>
#include <vector>

class Process_factory_interface {
public:
    virtual ~Process_factory_interface() = default;
    // Returns the child's pid in the parent, -1 in every other case.
    virtual int create_process(const std::string& path, std::vector<std::string>& arguments,
                               const std::vector<std::string>& environment) = 0;
    virtual bool is_running() = 0;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_DIRECTORY_READER_HPP
#define STRATA_STRATEGIES_DIRECTORY_READER_HPP

#include "strategies/directory_reader_interface.hpp"

class Directory_reader : public Directory_reader_interface {
public:
    bool read_entry_names(const std::string& directory, std::vector<std::string>& names) override;
};

#endif

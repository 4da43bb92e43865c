#ifndef STRATA_STRATEGIES_TEST_FAKE_DIRECTORY_READER_HPP
#define STRATA_STRATEGIES_TEST_FAKE_DIRECTORY_READER_HPP

#include <map>
#include <string>
#include <vector>

#include "strategies/directory_reader_interface.hpp"

// Directories that exist only in the test, with their entries in a chosen order.
class Fake_directory_reader : public Directory_reader_interface {
public:
    void add_directory(const std::string& directory, std::vector<std::string> names)
    {
        directories[directory] = std::move(names);
    }

    bool read_entry_names(const std::string& directory, std::vector<std::string>& names) override
    {
        reads.push_back(directory);
        auto found = directories.find(directory);
        if (found == directories.end()) {
            return false;
        }
        names.insert(names.end(), found->second.begin(), found->second.end());
        return true;
    }

    std::vector<std::string> reads;

private:
    std::map<std::string, std::vector<std::string>> directories;
};

#endif

#ifndef STRATA_STRATEGIES_TEST_FAKE_INTERFACE_ADDRESS_SOURCE_HPP
#define STRATA_STRATEGIES_TEST_FAKE_INTERFACE_ADDRESS_SOURCE_HPP

#include <vector>

#include "strategies/interface_address_source_interface.hpp"

class Fake_interface_address_source : public Interface_address_source_interface {
public:
    bool read_ipv6_addresses(std::vector<Interface_address>& addresses) override
    {
        if (fails) {
            return false;
        }
        addresses.insert(addresses.end(), entries.begin(), entries.end());
        return true;
    }

    std::vector<Interface_address> entries;
    bool fails{false};
};

#endif

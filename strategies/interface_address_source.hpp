// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_STRATEGIES_INTERFACE_ADDRESS_SOURCE_HPP
#define STRATA_STRATEGIES_INTERFACE_ADDRESS_SOURCE_HPP

#include "strategies/interface_address_source_interface.hpp"

class Interface_address_source : public Interface_address_source_interface {
public:
    bool read_ipv6_addresses(std::vector<Interface_address>& addresses) override;
};

#endif

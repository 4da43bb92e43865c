// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdlib>
#include <vector>

#include "strategies/interface_address_source.hpp"

namespace {

// Read once for real, so that the sanitizer runs see a list that is not given back; and
// once where the process may open no descriptor, so that the read itself fails.
TEST(HostAddresses, AreReadFromTheKernelOrTheReadFails)
{
    std::vector<Interface_address> addresses;
    EXPECT_TRUE(Interface_address_source().read_ipv6_addresses(addresses));
    // Other tests of this program leave the log library's threads behind.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const rlimit no_descriptors{};
            (void)::setrlimit(RLIMIT_NOFILE, &no_descriptors);
            std::_Exit(Interface_address_source().read_ipv6_addresses(addresses) ? 1 : 0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace

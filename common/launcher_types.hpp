// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_COMMON_LAUNCHER_TYPES_HPP
#define STRATA_COMMON_LAUNCHER_TYPES_HPP

#include <cstdint>

// The daemon kind, taken from the command line. Any other byte value is invalid.
enum Launcher_type : std::uint8_t {
    COM = 0,
    DLT = 1,
    PHM = 2,
    UDPNM = 3,
    COM_BRIDGE = 99,
};

// Held by the type byte before the argument has been read; never a valid kind.
constexpr std::uint8_t launcher_type_unset = 100;

// The partition (virtual machine), detected from the host name.
enum Partition : std::uint8_t {
    vm_adaptive = 0,
    vm_java = 1,
    vm_housekeeping = 2,
    qemu_arm64 = 3,
    partition_unknown = 10,
};

struct Launcher_configuration {
    std::uint8_t type{launcher_type_unset};
    std::uint8_t partition{partition_unknown};
};

#endif

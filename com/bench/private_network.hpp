// SPDX-License-Identifier: Apache-2.0
// The benchmarks run in a network namespace of their own, whose loopback starts down.
#ifndef STRATA_COM_BENCH_PRIVATE_NETWORK_HPP
#define STRATA_COM_BENCH_PRIVATE_NETWORK_HPP

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace bench {

inline void bring_loopback_up()
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
    (void)::ioctl(fd, SIOCGIFFLAGS, &request);
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
    (void)::ioctl(fd, SIOCSIFFLAGS, &request);
    (void)::close(fd);
}

}  // namespace bench

#endif

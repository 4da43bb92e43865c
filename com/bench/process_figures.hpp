// SPDX-License-Identifier: Apache-2.0
// What the benchmarks report of their own process: CPU time and resident memory.
#ifndef STRATA_COM_BENCH_PROCESS_FIGURES_HPP
#define STRATA_COM_BENCH_PROCESS_FIGURES_HPP

#include <sys/resource.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace bench {

// User and system time of the whole process, in seconds.
inline double cpu_seconds()
{
    rusage usage{};
    (void)getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Resident set size in KiB, 0 when the kernel does not say.
inline long rss_kib()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::atol(line.c_str() + 6);
        }
    }
    return 0;
}

}  // namespace bench

#endif

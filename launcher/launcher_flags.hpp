// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_LAUNCHER_FLAGS_HPP
#define STRATA_LAUNCHER_LAUNCHER_FLAGS_HPP

#include <atomic>

// Written by the signal handler, read and reset by the restart loop. Plain loads and
// stores only (sequentially consistent): the handler may not take locks.
extern std::atomic<bool> stop_flag;         // end the current pass
extern std::atomic<bool> termination_flag;  // end the process
extern std::atomic<bool> child_stop_flag;   // a child ended the pass

#endif

// SPDX-License-Identifier: Apache-2.0
#include "launcher/launcher_flags.hpp"

std::atomic<bool> stop_flag{false};
std::atomic<bool> termination_flag{false};
std::atomic<bool> child_stop_flag{false};

// A flag that needed a lock would make the signal handler unsafe.
static_assert(std::atomic<bool>::is_always_lock_free, "the launcher's flags must be lock-free");

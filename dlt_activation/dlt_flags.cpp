// SPDX-License-Identifier: Apache-2.0
#include "dlt_activation/dlt_flags.hpp"

// Every launcher kind starts with the flag set; the DLT launcher clears it in its
// initialisation before the service search starts.
std::atomic<bool> dlt_pm_flag{true};
std::atomic<bool> flag_updated{false};
std::mutex dlt_request_mutex;

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DLT_ACTIVATION_DLT_FLAGS_HPP
#define STRATA_DLT_ACTIVATION_DLT_FLAGS_HPP

#include <atomic>
#include <mutex>

// true: DLT logging is activated and the DLT daemons should run.
extern std::atomic<bool> dlt_pm_flag;
// true: the flag was (re)established since the main loop last cleared it.
extern std::atomic<bool> flag_updated;
// Serialises the flag requests to the diagnostic data distribution service.
extern std::mutex dlt_request_mutex;

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_COMMON_SILENT_TRACE_HPP
#define STRATA_COMMON_SILENT_TRACE_HPP

#include <string>

// Constructor, destructor and "called" lines are composed like any other message but
// deliberately go nowhere: they would drown the console an integrator reads.
inline void silent_trace(const std::string& message) noexcept
{
    (void)message;
}

#endif

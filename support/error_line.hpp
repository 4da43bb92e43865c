// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_ERROR_LINE_HPP
#define STRATA_SUPPORT_ERROR_LINE_HPP

#include <string>

// Writes one message line to standard error and flushes it. The line goes out in one
// piece so that lines written by middleware threads and the main thread do not mix.
void write_error_line(const std::string& text);

#endif

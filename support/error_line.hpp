// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_ERROR_LINE_HPP
#define STRATA_SUPPORT_ERROR_LINE_HPP

#include <cstddef>
#include <string>

// Writes one message line to standard error. The line goes out in one call so that lines
// written by middleware threads, reaping threads and the main thread do not mix.
void write_error_line(const std::string& text);

// The same without a line end, for the few messages that the next one completes.
void write_error_text(const std::string& text);

// The bytes as they are, resumed after EINTR and short writes. Async-signal-safe: the child
// of a fork uses it before its execve.
void write_error_bytes(const char* text, std::size_t length) noexcept;

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_CONSOLE_HPP
#define STRATA_LAUNCHER_CONSOLE_HPP

#include <string>

#include "support/error_line.hpp"

// One message line on standard error, written at once so that it is not lost when the
// process ends or is killed right after it, and in one piece: the children's waiting
// threads write their lines at the same time.
inline void console_line(const std::string& text)
{
    write_error_line(text);
}

#endif

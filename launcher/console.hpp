// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_CONSOLE_HPP
#define STRATA_LAUNCHER_CONSOLE_HPP

#include <iostream>
#include <string>

// One message line on standard error, flushed at once so that it is not lost when the
// process ends or is killed right after it. Text and line end go out in one insertion:
// the children's waiting threads write their lines at the same time, and a line of theirs
// must not land between a message and its line end.
inline void console_line(const std::string& text)
{
    std::cerr << (text + '\n') << std::flush;
}

#endif

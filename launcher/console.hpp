#ifndef STRATA_LAUNCHER_CONSOLE_HPP
#define STRATA_LAUNCHER_CONSOLE_HPP

#include <iostream>
#include <string>

// One message line on standard error, flushed at once so that it is not lost when the
// process ends or is killed right after it.
inline void console_line(const std::string& text)
{
    std::cerr << text << std::endl;
}

#endif

// SPDX-License-Identifier: Apache-2.0
#include "support/error_line.hpp"

#include <iostream>

void write_error_line(const std::string& text)
{
    std::string line;
    line.reserve(text.size() + 1);
    line += text;
    line += '\n';
    std::cerr.write(line.data(), static_cast<std::streamsize>(line.size()));
    std::cerr.flush();
}

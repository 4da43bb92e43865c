// SPDX-License-Identifier: Apache-2.0
#include "support/error_line.hpp"

#include <unistd.h>

#include <cerrno>
#include <cstddef>

// Straight to the descriptor, resumed after EINTR and short writes: a stdio stream gives up
// on either and then stays failed, which would silence every later line of a run that lasts
// for months. A line that cannot be written at all is lost alone.
void write_error_bytes(const char* text, std::size_t length) noexcept
{
    while (length > 0) {
        const ssize_t written = ::write(STDERR_FILENO, text, length);
        if (written <= 0) {
            if (written < 0 && errno == EINTR) {
                continue;
            }
            return;
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

void write_error_line(const std::string& text)
{
    std::string line;
    line.reserve(text.size() + 1);
    line += text;
    line += '\n';
    write_error_bytes(line.data(), line.size());
}

void write_error_text(const std::string& text)
{
    write_error_bytes(text.data(), text.size());
}

// SPDX-License-Identifier: Apache-2.0
#include "launcher/signal_handler.hpp"


#include <cerrno>
#include <csignal>
#include <cstddef>

#include "launcher/launcher_flags.hpp"
#include "support/error_line.hpp"

namespace {

constexpr char received_text[] = "Launcher: Received SIGNAL";

// Formats into a caller's buffer: no allocation, no locale, nothing a signal may break.
std::size_t format_line(int signal, char* line, std::size_t size)
{
    std::size_t length = 0;
    for (const char* c = received_text; *c != '\0' && length < size; ++c) {
        line[length++] = *c;
    }
    char digits[12];
    std::size_t count = 0;
    unsigned int value = signal < 0 ? 0U - static_cast<unsigned int>(signal) : static_cast<unsigned int>(signal);
    do {
        digits[count++] = static_cast<char>('0' + value % 10U);
        value /= 10U;
    } while (value != 0U && count < sizeof(digits));
    if (signal < 0 && length < size) {
        line[length++] = '-';
    }
    while (count > 0 && length < size) {
        line[length++] = digits[--count];
    }
    if (length < size) {
        line[length++] = '\n';
    }
    return length;
}

void write_line(int signal)
{
    char line[64];
    const std::size_t length = format_line(signal, line, sizeof(line));
    // A lost diagnostic line is no reason to disturb the interrupted code; a short write
    // (a full pipe to the journal) goes on with the rest.
    write_error_bytes(line, length);
}

}  // namespace

void signal_handler(int signal)
{
    const int saved_errno = errno;
    write_line(signal);
    // Cleared for every signal: a termination request after a child's death must end the
    // process rather than restart the daemons.
    child_stop_flag.store(false);
    if (signal == SIGTERM || signal == SIGINT) {
        termination_flag.store(true);
        stop_flag.store(true);
    } else if (signal == SIGCHLD) {
        child_stop_flag.store(true);
        stop_flag.store(true);
    }
    errno = saved_errno;
}

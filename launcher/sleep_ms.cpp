// SPDX-License-Identifier: Apache-2.0
#include "launcher/sleep_ms.hpp"

#include <time.h>

#include <cerrno>

void sleep_ms(int ms)
{
    if (ms <= 0) {
        return;
    }
    timespec remaining{ms / 1000, static_cast<long>(ms % 1000) * 1000000L};
    // A signal cuts the sleep short; the loop's poll period must not shrink with it.
    while (nanosleep(&remaining, &remaining) == -1 && errno == EINTR) {
    }
}

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_SLEEP_MS_HPP
#define STRATA_LAUNCHER_SLEEP_MS_HPP

// Sleeps the whole time even when signals arrive meanwhile; nothing for ms <= 0.
void sleep_ms(int ms);

#endif

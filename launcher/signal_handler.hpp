// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_SIGNAL_HANDLER_HPP
#define STRATA_LAUNCHER_SIGNAL_HANDLER_HPP

// Installed for SIGTERM, SIGINT and SIGCHLD. Writes one line and sets the launcher's
// flags; async-signal-safe.
void signal_handler(int signal);

#endif

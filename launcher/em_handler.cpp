// SPDX-License-Identifier: Apache-2.0
#include "launcher/em_handler.hpp"

#include <csignal>
#include <cstring>

EM_handler::EM_handler(System_call_api_interface* system_call_api) : system_call(system_call_api) {}

bool EM_handler::register_signal_handler(Signal_handler handler)
{
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: the main loop's sleep is meant to be cut short. No SA_NOCLDSTOP: a
    // stopped child ends the pass as well.
    action.sa_flags = 0;

    const int term_result = system_call->sigaction(SIGTERM, &action, nullptr);
    const int int_result = system_call->sigaction(SIGINT, &action, nullptr);
    const int chld_result = system_call->sigaction(SIGCHLD, &action, nullptr);
    return term_result != -1 && int_result == 0 && chld_result == 0;
}

void EM_handler::report_ready()
{
    // Outside systemd there is nobody to tell; that is not the launcher's failure.
    (void)system_call->sd_notify(0, "READY=1\n");
}

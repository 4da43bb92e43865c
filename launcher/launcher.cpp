// SPDX-License-Identifier: Apache-2.0
#include "launcher/launcher.hpp"

#include "ara/log/logging.hpp"
#include "launcher/console.hpp"

Launcher::Launcher(EM_handler_interface* em_handler_ptr, System_call_api_interface* system_call_api)
    : em_handler(em_handler_ptr), system_call(system_call_api)
{
}

Launcher::~Launcher()
{
    ara::log::LogDebug() << "Launcher: delete ...";
}

bool Launcher::prepare(Launcher_strategy_interface* new_strategy)
{
    strategy = new_strategy;
    if (strategy == nullptr) {
        return false;
    }
    return strategy->prepare(system_call, this);
}

bool Launcher::start()
{
    const bool started = strategy != nullptr && strategy->start();
    em_handler->report_ready();
    return started;
}

void Launcher::stop()
{
    ara::log::LogDebug() << "Launcher: Stopping...";
    if (strategy != nullptr) {
        strategy->stop();
    }
}

bool Launcher::register_signals(Signal_handler handler)
{
    const bool registered = em_handler->register_signal_handler(handler);
    if (registered) {
        ara::log::LogDebug() << "Signals successfully registered.";
    } else {
        console_line("Cannot register to system signals. Terminating Launcher.");
    }
    return registered;
}

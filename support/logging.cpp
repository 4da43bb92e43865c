// SPDX-License-Identifier: Apache-2.0
#include "support/logging.hpp"

#include <atomic>
#include <utility>

namespace {
std::shared_ptr<LoggingBackend> muted_backend()
{
    static const std::shared_ptr<LoggingBackend> muted = std::make_shared<MutedLoggingBackend>();
    return muted;
}

// A function-local static so that static initialisers of other files may already log.
std::shared_ptr<LoggingBackend>& current_backend_slot()
{
    static std::shared_ptr<LoggingBackend> current = muted_backend();
    return current;
}

std::shared_ptr<LoggingBackend> current_backend()
{
    return std::atomic_load(&current_backend_slot());
}

// Touch the slot during static initialisation so the muted backend is in place from the
// start, before any thread exists.
const bool backend_ready = (current_backend_slot(), true);
}  // namespace

LoggingStream log_verbose()
{
    return current_backend()->verbose();
}
LoggingStream log_debug()
{
    return current_backend()->debug();
}
LoggingStream log_info()
{
    return current_backend()->info();
}
LoggingStream log_warn()
{
    return current_backend()->warn();
}
LoggingStream log_error()
{
    return current_backend()->error();
}
LoggingStream log_fatal()
{
    return current_backend()->fatal();
}

void log_flush_all()
{
    current_backend()->flush_all();
}

void set_logging_backend(std::shared_ptr<LoggingBackend> backend)
{
    if (!backend) {
        backend = muted_backend();
    }
    std::atomic_store(&current_backend_slot(), std::move(backend));
}

void init_ara_logging(const std::string& app_id, const std::string& description)
{
    static const std::shared_ptr<LoggingBackend> platform = std::make_shared<AraLoggingBackend>(app_id, description);
    set_logging_backend(platform);
}

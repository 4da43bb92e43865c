// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_ARA_LOGGING_BACKEND_HPP
#define STRATA_SUPPORT_ARA_LOGGING_BACKEND_HPP

#include <string>

#include "support/logging_backend.hpp"

// Writes through the platform log. Constructing it registers the application with the
// platform log, so the process holds at most one (see init_ara_logging).
class AraLoggingBackend final : public LoggingBackend {
public:
    AraLoggingBackend(const std::string& app_id, const std::string& description);

    LoggingStream verbose() override;
    LoggingStream debug() override;
    LoggingStream info() override;
    LoggingStream warn() override;
    LoggingStream error() override;
    LoggingStream fatal() override;
    void flush_all() override;
};

#endif

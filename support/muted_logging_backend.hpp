// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_MUTED_LOGGING_BACKEND_HPP
#define STRATA_SUPPORT_MUTED_LOGGING_BACKEND_HPP

#include "support/logging_backend.hpp"

// Discards everything: every stream it hands out is muted.
class MutedLoggingBackend final : public LoggingBackend {
public:
    LoggingStream verbose() override;
    LoggingStream debug() override;
    LoggingStream info() override;
    LoggingStream warn() override;
    LoggingStream error() override;
    LoggingStream fatal() override;
    void flush_all() override;
};

#endif

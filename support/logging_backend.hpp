// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_LOGGING_BACKEND_HPP
#define STRATA_SUPPORT_LOGGING_BACKEND_HPP

#include "support/logging_stream.hpp"

// Decides where the messages of the logging facade go.
class LoggingBackend {
public:
    LoggingBackend() = default;
    virtual ~LoggingBackend() = default;
    LoggingBackend(const LoggingBackend&) = delete;
    LoggingBackend& operator=(const LoggingBackend&) = delete;
    LoggingBackend(LoggingBackend&&) = delete;
    LoggingBackend& operator=(LoggingBackend&&) = delete;

    virtual LoggingStream verbose() = 0;
    virtual LoggingStream debug() = 0;
    virtual LoggingStream info() = 0;
    virtual LoggingStream warn() = 0;
    virtual LoggingStream error() = 0;
    virtual LoggingStream fatal() = 0;
    virtual void flush_all() = 0;
};

#endif

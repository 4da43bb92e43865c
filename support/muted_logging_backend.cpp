// SPDX-License-Identifier: Apache-2.0
#include "support/muted_logging_backend.hpp"

LoggingStream MutedLoggingBackend::verbose()
{
    return LoggingStream();
}
LoggingStream MutedLoggingBackend::debug()
{
    return LoggingStream();
}
LoggingStream MutedLoggingBackend::info()
{
    return LoggingStream();
}
LoggingStream MutedLoggingBackend::warn()
{
    return LoggingStream();
}
LoggingStream MutedLoggingBackend::error()
{
    return LoggingStream();
}
LoggingStream MutedLoggingBackend::fatal()
{
    return LoggingStream();
}
void MutedLoggingBackend::flush_all() {}

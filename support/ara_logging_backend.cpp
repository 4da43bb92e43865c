// SPDX-License-Identifier: Apache-2.0
#include "support/ara_logging_backend.hpp"

#include <memory>

#include "support/ara_logging_adapter.hpp"

namespace {
LoggingStream stream_from(AraLoggingAdapter::StreamFactory factory)
{
    return LoggingStream(std::make_shared<AraLoggingAdapter>(factory));
}

void flush_one(AraLoggingAdapter::StreamFactory factory)
{
    ara::log::LogStream stream = factory();
    stream.Flush();
}
}  // namespace

AraLoggingBackend::AraLoggingBackend(const std::string& app_id, const std::string& description)
{
    ara::log::InitLogging(app_id, description, ara::log::LogLevel::kInfo, ara::log::LogMode::kRemote, "");
}

LoggingStream AraLoggingBackend::verbose()
{
    return stream_from(&ara::log::LogVerbose);
}
LoggingStream AraLoggingBackend::debug()
{
    return stream_from(&ara::log::LogDebug);
}
LoggingStream AraLoggingBackend::info()
{
    return stream_from(&ara::log::LogInfo);
}
LoggingStream AraLoggingBackend::warn()
{
    return stream_from(&ara::log::LogWarn);
}
LoggingStream AraLoggingBackend::error()
{
    return stream_from(&ara::log::LogError);
}
LoggingStream AraLoggingBackend::fatal()
{
    return stream_from(&ara::log::LogFatal);
}

void AraLoggingBackend::flush_all()
{
    flush_one(&ara::log::LogVerbose);
    flush_one(&ara::log::LogDebug);
    flush_one(&ara::log::LogInfo);
    flush_one(&ara::log::LogWarn);
    flush_one(&ara::log::LogError);
    flush_one(&ara::log::LogFatal);
}

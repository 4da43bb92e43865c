// SPDX-License-Identifier: Apache-2.0
// ara::log for builds without a log daemon library: every operation does nothing.
#include "ara/log/logging.hpp"

namespace ara {
namespace log {

class LogStream::Impl {};

void InitLogging(std::string, std::string, LogLevel, LogMode, std::string) noexcept {}

LogStream::LogStream(LogLevel) noexcept {}
LogStream::~LogStream() = default;
LogStream::LogStream(LogStream&&) noexcept = default;
void LogStream::Flush() noexcept {}
LogStream& LogStream::operator<<(bool) noexcept { return *this; }
LogStream& LogStream::operator<<(std::uint8_t) noexcept { return *this; }
LogStream& LogStream::operator<<(std::uint16_t) noexcept { return *this; }
LogStream& LogStream::operator<<(std::uint32_t) noexcept { return *this; }
LogStream& LogStream::operator<<(std::uint64_t) noexcept { return *this; }
LogStream& LogStream::operator<<(std::int8_t) noexcept { return *this; }
LogStream& LogStream::operator<<(std::int16_t) noexcept { return *this; }
LogStream& LogStream::operator<<(std::int32_t) noexcept { return *this; }
LogStream& LogStream::operator<<(std::int64_t) noexcept { return *this; }
LogStream& LogStream::operator<<(float) noexcept { return *this; }
LogStream& LogStream::operator<<(double) noexcept { return *this; }
LogStream& LogStream::operator<<(const char*) noexcept { return *this; }
LogStream& LogStream::operator<<(const std::string&) noexcept { return *this; }

LogStream LogFatal() noexcept { return LogStream(LogLevel::kFatal); }
LogStream LogError() noexcept { return LogStream(LogLevel::kError); }
LogStream LogWarn() noexcept { return LogStream(LogLevel::kWarn); }
LogStream LogInfo() noexcept { return LogStream(LogLevel::kInfo); }
LogStream LogDebug() noexcept { return LogStream(LogLevel::kDebug); }
LogStream LogVerbose() noexcept { return LogStream(LogLevel::kVerbose); }

}  // namespace log
}  // namespace ara

// SPDX-License-Identifier: Apache-2.0
#ifndef ARA_LOG_LOGGING_HPP
#define ARA_LOG_LOGGING_HPP

#include <cstdint>
#include <memory>
#include <string>

namespace ara {
namespace log {

enum class LogLevel : std::uint8_t {
    kOff = 0x00,
    kFatal = 0x01,
    kError = 0x02,
    kWarn = 0x03,
    kInfo = 0x04,
    kDebug = 0x05,
    kVerbose = 0x06,
};

enum class LogMode : std::uint8_t {
    kRemote = 0x01,
    kFile = 0x02,
    kConsole = 0x04,
};

// Registers the application with the log daemon. Later calls are ignored.
void InitLogging(std::string appId, std::string appDescription, LogLevel appDefLogLevel, LogMode logMode,
                 std::string directoryPath) noexcept;

// One log message in the making; it is sent when the stream is flushed or destroyed.
class LogStream final {
public:
    explicit LogStream(LogLevel level) noexcept;
    ~LogStream();
    LogStream(LogStream&& other) noexcept;
    LogStream& operator=(LogStream&&) = delete;
    LogStream(const LogStream&) = delete;
    LogStream& operator=(const LogStream&) = delete;

    // Sends what was written so far and starts a new message of the same level.
    void Flush() noexcept;

    LogStream& operator<<(bool value) noexcept;
    LogStream& operator<<(std::uint8_t value) noexcept;
    LogStream& operator<<(std::uint16_t value) noexcept;
    LogStream& operator<<(std::uint32_t value) noexcept;
    LogStream& operator<<(std::uint64_t value) noexcept;
    LogStream& operator<<(std::int8_t value) noexcept;
    LogStream& operator<<(std::int16_t value) noexcept;
    LogStream& operator<<(std::int32_t value) noexcept;
    LogStream& operator<<(std::int64_t value) noexcept;
    LogStream& operator<<(float value) noexcept;
    LogStream& operator<<(double value) noexcept;
    LogStream& operator<<(const char* value) noexcept;
    LogStream& operator<<(const std::string& value) noexcept;

    class Impl;

private:
    std::unique_ptr<Impl> impl_;
};

LogStream LogFatal() noexcept;
LogStream LogError() noexcept;
LogStream LogWarn() noexcept;
LogStream LogInfo() noexcept;
LogStream LogDebug() noexcept;
LogStream LogVerbose() noexcept;

}  // namespace log
}  // namespace ara

#endif

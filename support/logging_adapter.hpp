// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_LOGGING_ADAPTER_HPP
#define STRATA_SUPPORT_LOGGING_ADAPTER_HPP

#include <cstdint>
#include <string>

// One message in the making, in whatever log the backend writes to.
class LoggingAdapter {
public:
    LoggingAdapter() = default;
    virtual ~LoggingAdapter() = default;
    LoggingAdapter(const LoggingAdapter&) = delete;
    LoggingAdapter& operator=(const LoggingAdapter&) = delete;
    LoggingAdapter(LoggingAdapter&&) = delete;
    LoggingAdapter& operator=(LoggingAdapter&&) = delete;

    virtual void flush() = 0;
    virtual LoggingAdapter& operator<<(bool value) = 0;
    virtual LoggingAdapter& operator<<(std::uint8_t value) = 0;
    virtual LoggingAdapter& operator<<(std::uint16_t value) = 0;
    virtual LoggingAdapter& operator<<(std::uint32_t value) = 0;
    virtual LoggingAdapter& operator<<(std::uint64_t value) = 0;
    virtual LoggingAdapter& operator<<(std::int8_t value) = 0;
    virtual LoggingAdapter& operator<<(std::int16_t value) = 0;
    virtual LoggingAdapter& operator<<(std::int32_t value) = 0;
    virtual LoggingAdapter& operator<<(std::int64_t value) = 0;
    virtual LoggingAdapter& operator<<(float value) = 0;
    virtual LoggingAdapter& operator<<(double value) = 0;
    virtual LoggingAdapter& operator<<(const char* value) = 0;
    virtual LoggingAdapter& operator<<(const std::string& value) = 0;
};

#endif

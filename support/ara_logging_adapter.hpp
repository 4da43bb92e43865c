// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_ARA_LOGGING_ADAPTER_HPP
#define STRATA_SUPPORT_ARA_LOGGING_ADAPTER_HPP

#include "ara/log/logging.hpp"
#include "support/logging_adapter.hpp"

// One platform log message; it is sent when the adapter is destroyed.
class AraLoggingAdapter final : public LoggingAdapter {
public:
    // One of ara::log::LogVerbose ... ara::log::LogFatal.
    using StreamFactory = ara::log::LogStream (*)() noexcept;

    explicit AraLoggingAdapter(StreamFactory factory);

    // The platform stream sends on destruction; flushing here would split the message.
    void flush() override;
    LoggingAdapter& operator<<(bool value) override;
    LoggingAdapter& operator<<(std::uint8_t value) override;
    LoggingAdapter& operator<<(std::uint16_t value) override;
    LoggingAdapter& operator<<(std::uint32_t value) override;
    LoggingAdapter& operator<<(std::uint64_t value) override;
    LoggingAdapter& operator<<(std::int8_t value) override;
    LoggingAdapter& operator<<(std::int16_t value) override;
    LoggingAdapter& operator<<(std::int32_t value) override;
    LoggingAdapter& operator<<(std::int64_t value) override;
    LoggingAdapter& operator<<(float value) override;
    LoggingAdapter& operator<<(double value) override;
    LoggingAdapter& operator<<(const char* value) override;
    LoggingAdapter& operator<<(const std::string& value) override;

private:
    ara::log::LogStream stream_;
};

#endif

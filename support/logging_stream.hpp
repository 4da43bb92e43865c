// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_LOGGING_STREAM_HPP
#define STRATA_SUPPORT_LOGGING_STREAM_HPP

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/logging_adapter.hpp"

// What a log statement writes into. A null adapter makes a muted stream: every insertion
// is accepted and dropped. The message is finished when the stream is destroyed.
class LoggingStream {
public:
    explicit LoggingStream(std::shared_ptr<LoggingAdapter> adapter = nullptr) noexcept;
    ~LoggingStream();
    LoggingStream(LoggingStream&& other) noexcept;
    LoggingStream& operator=(LoggingStream&& other) noexcept;
    // A copy would finish the same message twice.
    LoggingStream(const LoggingStream&) = delete;
    LoggingStream& operator=(const LoggingStream&) = delete;

    LoggingStream& operator<<(bool value);
    LoggingStream& operator<<(std::uint8_t value);
    LoggingStream& operator<<(std::uint16_t value);
    LoggingStream& operator<<(std::uint32_t value);
    LoggingStream& operator<<(std::uint64_t value);
    LoggingStream& operator<<(std::int8_t value);
    LoggingStream& operator<<(std::int16_t value);
    LoggingStream& operator<<(std::int32_t value);
    LoggingStream& operator<<(std::int64_t value);
    LoggingStream& operator<<(float value);
    LoggingStream& operator<<(double value);
    LoggingStream& operator<<(const char* value);
    LoggingStream& operator<<(const std::string& value);
    // Written as "size: N, data: {[0A]...}", at most ten bytes shown.
    LoggingStream& operator<<(const std::vector<std::uint8_t>& bytes);

    [[nodiscard]] bool is_muted() const noexcept;

    // The text a byte vector is logged as.
    static std::string format_bytes(const std::vector<std::uint8_t>& bytes);

private:
    template <typename T>
    LoggingStream& forward(const T& value);

    std::shared_ptr<LoggingAdapter> adapter_;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#include "support/logging_stream.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {
constexpr std::size_t shown_bytes = 10;
}

LoggingStream::LoggingStream(std::shared_ptr<LoggingAdapter> adapter) noexcept : adapter_(std::move(adapter)) {}

LoggingStream::~LoggingStream()
{
    // The destructor is noexcept: a backend whose flush throws ends the process rather
    // than losing the message silently.
    if (adapter_) {
        adapter_->flush();
    }
}

LoggingStream::LoggingStream(LoggingStream&& other) noexcept : adapter_(std::move(other.adapter_)) {}

LoggingStream& LoggingStream::operator=(LoggingStream&& other) noexcept
{
    if (this != &other) {
        if (adapter_) {
            adapter_->flush();
        }
        adapter_ = std::move(other.adapter_);
    }
    return *this;
}

template <typename T>
LoggingStream& LoggingStream::forward(const T& value)
{
    if (adapter_) {
        (void)(*adapter_ << value);
    }
    return *this;
}

LoggingStream& LoggingStream::operator<<(bool value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::uint8_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::uint16_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::uint32_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::uint64_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::int8_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::int16_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::int32_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(std::int64_t value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(float value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(double value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(const char* value)
{
    return forward(value);
}
LoggingStream& LoggingStream::operator<<(const std::string& value)
{
    return forward(value);
}

LoggingStream& LoggingStream::operator<<(const std::vector<std::uint8_t>& bytes)
{
    // Formatting costs nothing worth saving on a muted stream, but skip it anyway.
    if (!adapter_) {
        return *this;
    }
    return forward(format_bytes(bytes));
}

bool LoggingStream::is_muted() const noexcept
{
    return !adapter_;
}

std::string LoggingStream::format_bytes(const std::vector<std::uint8_t>& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text = "size: " + std::to_string(bytes.size()) + ", data: {";
    const std::size_t shown = std::min(bytes.size(), shown_bytes);
    for (std::size_t i = 0; i < shown; ++i) {
        text += '[';
        text += digits[bytes[i] >> 4U];
        text += digits[bytes[i] & 0x0FU];
        text += ']';
    }
    if (bytes.size() > shown_bytes) {
        text += "...";
    }
    text += '}';
    return text;
}

// SPDX-License-Identifier: Apache-2.0
#include "support/ara_logging_adapter.hpp"

AraLoggingAdapter::AraLoggingAdapter(StreamFactory factory) : stream_(factory()) {}

void AraLoggingAdapter::flush() {}

LoggingAdapter& AraLoggingAdapter::operator<<(bool value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::uint8_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::uint16_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::uint32_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::uint64_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::int8_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::int16_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::int32_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(std::int64_t value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(float value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(double value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(const char* value)
{
    stream_ << value;
    return *this;
}
LoggingAdapter& AraLoggingAdapter::operator<<(const std::string& value)
{
    stream_ << value.c_str();
    return *this;
}

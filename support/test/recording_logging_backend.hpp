// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_TEST_RECORDING_LOGGING_BACKEND_HPP
#define STRATA_SUPPORT_TEST_RECORDING_LOGGING_BACKEND_HPP

// A logging backend for tests: keeps every finished message with its level, its values as
// printed and how often it was flushed.

#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "support/logging.hpp"

struct RecordedMessage {
    std::string level;
    std::string text;
    int flushes{0};
};

class RecordingLog {
public:
    void add(const RecordedMessage& message)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        messages_.push_back(message);
    }
    std::vector<RecordedMessage> messages() const
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return messages_;
    }
    std::vector<std::string> texts(const std::string& level = "") const
    {
        std::vector<std::string> result;
        for (const auto& message : messages()) {
            if (level.empty() || message.level == level) {
                result.push_back(message.text);
            }
        }
        return result;
    }

private:
    mutable std::mutex mutex_;
    std::vector<RecordedMessage> messages_;
};

class RecordingLoggingAdapter final : public LoggingAdapter {
public:
    RecordingLoggingAdapter(std::shared_ptr<RecordingLog> log, const char* level) : log_(std::move(log))
    {
        message_.level = level;
    }
    // Like the platform stream: the message is complete when the last owner lets go.
    ~RecordingLoggingAdapter() override { log_->add(message_); }

    void flush() override { ++message_.flushes; }
    LoggingAdapter& operator<<(bool value) override { return add(value); }
    LoggingAdapter& operator<<(std::uint8_t value) override { return add(value); }
    LoggingAdapter& operator<<(std::uint16_t value) override { return add(value); }
    LoggingAdapter& operator<<(std::uint32_t value) override { return add(value); }
    LoggingAdapter& operator<<(std::uint64_t value) override { return add(value); }
    LoggingAdapter& operator<<(std::int8_t value) override { return add(value); }
    LoggingAdapter& operator<<(std::int16_t value) override { return add(value); }
    LoggingAdapter& operator<<(std::int32_t value) override { return add(value); }
    LoggingAdapter& operator<<(std::int64_t value) override { return add(value); }
    LoggingAdapter& operator<<(float value) override { return add(value); }
    LoggingAdapter& operator<<(double value) override { return add(value); }
    LoggingAdapter& operator<<(const char* value) override { return add(value); }
    LoggingAdapter& operator<<(const std::string& value) override { return add(value); }

private:
    template <typename T>
    LoggingAdapter& add(const T& value)
    {
        std::ostringstream out;
        if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
            out << +value;  // bytes as numbers
        } else {
            out << std::boolalpha << value;
        }
        message_.text += out.str();
        return *this;
    }

    std::shared_ptr<RecordingLog> log_;
    RecordedMessage message_;
};

class RecordingLoggingBackend final : public LoggingBackend {
public:
    explicit RecordingLoggingBackend(std::shared_ptr<RecordingLog> log) : log_(std::move(log)) {}

    LoggingStream verbose() override { return make("verbose"); }
    LoggingStream debug() override { return make("debug"); }
    LoggingStream info() override { return make("info"); }
    LoggingStream warn() override { return make("warn"); }
    LoggingStream error() override { return make("error"); }
    LoggingStream fatal() override { return make("fatal"); }
    void flush_all() override { ++flush_all_calls; }

    int flush_all_calls{0};

private:
    LoggingStream make(const char* level)
    {
        return LoggingStream(std::make_shared<RecordingLoggingAdapter>(log_, level));
    }
    std::shared_ptr<RecordingLog> log_;
};

// Installs a recording backend for the lifetime of the guard and the muted one afterwards.
class ScopedRecordingBackend {
public:
    ScopedRecordingBackend()
        : log(std::make_shared<RecordingLog>()), backend(std::make_shared<RecordingLoggingBackend>(log))
    {
        set_logging_backend(backend);
    }
    ~ScopedRecordingBackend() { set_logging_backend(nullptr); }
    ScopedRecordingBackend(const ScopedRecordingBackend&) = delete;
    ScopedRecordingBackend& operator=(const ScopedRecordingBackend&) = delete;

    std::shared_ptr<RecordingLog> log;
    std::shared_ptr<RecordingLoggingBackend> backend;
};

#endif

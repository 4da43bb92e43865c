// SPDX-License-Identifier: Apache-2.0
// ara::log on the DLT user library: messages go to the DLT daemon, and the library filters
// them by the context's log level, which the daemon's remote control can change at run time.
#include <dlt/dlt.h>

#include <atomic>
#include <cstdlib>
#include <limits>
#include <memory>
#include <mutex>
#include <new>

#include "ara/log/logging.hpp"

namespace ara {
namespace log {

namespace {

const char* const context_id = "LAUN";
const char* const context_description = "Launcher";

struct Backend {
    std::mutex mutex;
    bool initialised{false};
    DltContext context{};
    std::atomic<bool> ready{false};
};

// Never destroyed: streams may still be written by static destructors and late threads.
Backend& backend()
{
    static Backend* const instance = new Backend;
    return *instance;
}

bool has_mode(LogMode mode, LogMode flag)
{
    return (static_cast<unsigned>(mode) & static_cast<unsigned>(flag)) != 0U;
}

DltLogLevelType to_dlt(LogLevel level)
{
    switch (level) {
        case LogLevel::kOff:
            return DLT_LOG_OFF;
        case LogLevel::kFatal:
            return DLT_LOG_FATAL;
        case LogLevel::kError:
            return DLT_LOG_ERROR;
        case LogLevel::kWarn:
            return DLT_LOG_WARN;
        case LogLevel::kInfo:
            return DLT_LOG_INFO;
        case LogLevel::kDebug:
            return DLT_LOG_DEBUG;
        case LogLevel::kVerbose:
            return DLT_LOG_VERBOSE;
    }
    return DLT_LOG_OFF;
}

// Runs before the library's own at-exit handler (it was registered after it), so that no
// message started during the rest of the exit brings the library up again.
void close_at_exit()
{
    backend().ready = false;
}

void start_library(const std::string& appId, const std::string& appDescription, LogMode logMode,
                   const std::string& directoryPath)
{
    // The library reports its own trouble (no daemon, lost messages) on the console by
    // default; the supervisor's console carries only its own lines.
    dlt_log_init(DLT_LOG_DROPPED);
    if (!has_mode(logMode, LogMode::kRemote) && has_mode(logMode, LogMode::kFile) && !directoryPath.empty()) {
        (void)dlt_init_file((directoryPath + "/" + appId + ".dlt").c_str());
    }
    // Without a daemon the library would hold the exit for ten seconds trying to resend.
    // The time-out only takes when the library was initialised first: otherwise setting it
    // tries to initialise, and where that fails (no pipe directory) it gives up without
    // setting it, while the library's at-exit handler stays in place all the same.
    (void)dlt_init();
    (void)dlt_set_resend_timeout_atexit(0);
    (void)dlt_register_app(appId.c_str(), appDescription.c_str());
}

}  // namespace

class LogStream::Impl {
public:
    Impl(const DltContextData& started, DltLogLevelType message_level) : data(started), level(message_level) {}
    DltContextData data;
    DltLogLevelType level;
    // After a flush the next message is begun only when something is written to it, so
    // that a stream flushed last does not send an empty message on destruction.
    bool open{true};
};

namespace {

DltContextData* writable(const std::unique_ptr<LogStream::Impl>& impl)
{
    if (!impl) {
        return nullptr;
    }
    if (!impl->open) {
        DltContextData data{};
        if (!backend().ready || dlt_user_log_write_start(&backend().context, &data, impl->level) != DLT_RETURN_TRUE) {
            return nullptr;
        }
        impl->data = data;
        impl->open = true;
    }
    return &impl->data;
}

}  // namespace

void InitLogging(std::string appId, std::string appDescription, LogLevel appDefLogLevel, LogMode logMode,
                 std::string directoryPath) noexcept
{
    Backend& state = backend();
    const std::lock_guard<std::mutex> lock(state.mutex);
    if (state.initialised) {
        return;
    }
    state.initialised = true;
    start_library(appId, appDescription, logMode, directoryPath);
    // The level is the context's threshold inside the library, so a level set later through
    // the daemon's remote control takes effect.
    if (dlt_register_context_ll_ts(&state.context, context_id, context_description, to_dlt(appDefLogLevel),
                                   DLT_TRACE_STATUS_DEFAULT) < DLT_RETURN_OK) {
        return;
    }
    if (has_mode(logMode, LogMode::kConsole)) {
        (void)dlt_enable_local_print();
    }
    (void)std::atexit(close_at_exit);
    state.ready = true;
}

LogStream::LogStream(LogLevel level) noexcept
{
    Backend& state = backend();
    if (!state.ready) {
        return;
    }
    DltContextData data{};
    const DltLogLevelType dlt_level = to_dlt(level);
    if (dlt_user_log_write_start(&state.context, &data, dlt_level) != DLT_RETURN_TRUE) {
        return;
    }
    impl_.reset(new (std::nothrow) Impl(data, dlt_level));
    if (!impl_) {
        (void)dlt_user_log_write_finish(&data);
    }
}

LogStream::~LogStream()
{
    if (impl_ && impl_->open) {
        (void)dlt_user_log_write_finish(&impl_->data);
    }
}

LogStream::LogStream(LogStream&& other) noexcept : impl_(std::move(other.impl_)) {}

void LogStream::Flush() noexcept
{
    if (impl_ && impl_->open) {
        (void)dlt_user_log_write_finish(&impl_->data);
        impl_->open = false;
    }
}

LogStream& LogStream::operator<<(bool value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_bool(data, value ? 1 : 0);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::uint8_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_uint8(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::uint16_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_uint16(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::uint32_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_uint32(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::uint64_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_uint64(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::int8_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_int8(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::int16_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_int16(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::int32_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_int32(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(std::int64_t value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_int64(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(float value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_float32(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(double value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        (void)dlt_user_log_write_float64(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(const char* value) noexcept
{
    DltContextData* data = value != nullptr ? writable(impl_) : nullptr;
    if (data != nullptr) {
        (void)dlt_user_log_write_string(data, value);
    }
    return *this;
}

LogStream& LogStream::operator<<(const std::string& value) noexcept
{
    if (DltContextData* data = writable(impl_)) {
        // One DLT argument carries at most 64 KiB; the message buffer cuts it further.
        const std::size_t most = std::numeric_limits<std::uint16_t>::max();
        const auto length = static_cast<std::uint16_t>(value.size() < most ? value.size() : most);
        (void)dlt_user_log_write_sized_string(data, value.data(), length);
    }
    return *this;
}

LogStream LogFatal() noexcept
{
    return LogStream(LogLevel::kFatal);
}
LogStream LogError() noexcept
{
    return LogStream(LogLevel::kError);
}
LogStream LogWarn() noexcept
{
    return LogStream(LogLevel::kWarn);
}
LogStream LogInfo() noexcept
{
    return LogStream(LogLevel::kInfo);
}
LogStream LogDebug() noexcept
{
    return LogStream(LogLevel::kDebug);
}
LogStream LogVerbose() noexcept
{
    return LogStream(LogLevel::kVerbose);
}

}  // namespace log
}  // namespace ara

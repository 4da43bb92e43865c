// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "support/logging.hpp"
#include "support/test/recording_logging_backend.hpp"

namespace {

using Texts = std::vector<std::string>;

Texts seen(const RecordingLog& log)
{
    Texts result;
    for (const auto& message : log.messages()) {
        result.push_back(message.level + "=" + message.text + " flushed " + std::to_string(message.flushes));
    }
    return result;
}

// A null backend reinstalls the muted one, but a stream handed out before keeps its own.
TEST(Logging, EveryLevelAndValueReachesTheInstalledBackendUntilItIsReplaced)
{
    EXPECT_TRUE(log_info().is_muted());
    ScopedRecordingBackend recording;
    log_verbose() << true << std::uint8_t{200};
    log_debug() << std::uint16_t{65535} << std::uint32_t{7};
    log_info() << std::uint64_t{1ULL << 40} << std::int8_t{-8};
    log_warn() << std::int16_t{-16} << std::int32_t{-32} << std::int64_t{-64};
    log_error() << 0.5F << 0.25;
    log_flush_all();
    {
        LoggingStream fatal = log_fatal();
        set_logging_backend(nullptr);
        fatal << "c" << std::string("s") << std::vector<std::uint8_t>{0x0A};
        log_error() << "dropped";
        EXPECT_TRUE(log_error().is_muted());
        log_flush_all();
    }
    EXPECT_EQ(seen(*recording.log), (Texts{"verbose=true200 flushed 1", "debug=655357 flushed 1",
                                           "info=1099511627776-8 flushed 1", "warn=-16-32-64 flushed 1",
                                           "error=0.50.25 flushed 1", "fatal=cssize: 1, data: {[0A]} flushed 1"}));
    EXPECT_EQ(recording.backend->flush_all_calls, 1);
}

TEST(Logging, MovedStreamFinishesItsMessageOnce)
{
    ScopedRecordingBackend recording;
    {
        LoggingStream first = log_warn();
        first << "a";
        LoggingStream second = std::move(first);
        second << "b";
        first << "lost";  // NOLINT(bugprone-use-after-move): a moved-from stream is muted
        LoggingStream third = log_error();
        third = std::move(second);
    }
    EXPECT_EQ(seen(*recording.log), (Texts{"error= flushed 1", "warn=ab flushed 1"}));
}

TEST(Logging, ByteVectorsShowAtMostTenBytesInUpperCaseHex)
{
    EXPECT_EQ(LoggingStream::format_bytes({}), "size: 0, data: {}");
    EXPECT_EQ(LoggingStream::format_bytes({0, 1, 2, 3, 4, 5, 6, 7, 8, 171}),
              "size: 10, data: {[00][01][02][03][04][05][06][07][08][AB]}");
    EXPECT_EQ(LoggingStream::format_bytes({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 255}),
              "size: 11, data: {[00][01][02][03][04][05][06][07][08][09]...}");
}

// Runs in a child of its own: the platform log is initialised once per process, and the
// log library keeps per-process state (and a pipe directory) that the child takes along.
TEST(Logging, PlatformBackendIsInstalledOnceAndReused)
{
    struct stat before {};
    const bool existed = ::stat("/tmp/dltpipes", &before) == 0;
    EXPECT_EXIT(
        {
            init_ara_logging("TEST", "first");
            const bool installed = !log_info().is_muted();
            log_info() << "through the platform log" << std::vector<std::uint8_t>{1};
            init_ara_logging("OTHR", "second");
            std::exit(installed && !log_error().is_muted() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    if (!existed) {
        (void)::rmdir("/tmp/dltpipes");  // only when empty: another process may use it now
    }
}

}  // namespace

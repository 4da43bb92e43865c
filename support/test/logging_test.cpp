#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include <cstdint>
#include <string>
#include <vector>

#include "support/logging.hpp"
#include "support/test/recording_logging_backend.hpp"

namespace {

class LoggingFacade : public ::testing::Test {
protected:
    void TearDown() override { set_logging_backend(nullptr); }
};

TEST_F(LoggingFacade, StartsMutedAndMutedStreamsAcceptEveryValue)
{
    LoggingStream stream = log_info();
    EXPECT_TRUE(stream.is_muted());
    stream << true << std::uint8_t{1} << std::uint16_t{2} << std::uint32_t{3} << std::uint64_t{4} << std::int8_t{-1}
           << std::int16_t{-2} << std::int32_t{-3} << std::int64_t{-4} << 1.5F << 2.5 << "text" << std::string("s")
           << std::vector<std::uint8_t>{1, 2, 3};
    EXPECT_TRUE(log_verbose().is_muted());
    EXPECT_TRUE(log_debug().is_muted());
    EXPECT_TRUE(log_warn().is_muted());
    EXPECT_TRUE(log_error().is_muted());
    EXPECT_TRUE(log_fatal().is_muted());
    log_flush_all();
}

TEST_F(LoggingFacade, NullBackendReinstallsTheMutedOne)
{
    ScopedRecordingBackend recording;
    log_info() << "recorded";
    set_logging_backend(nullptr);
    log_info() << "dropped";
    log_flush_all();

    EXPECT_EQ(recording.log->texts(), std::vector<std::string>{"recorded"});
    EXPECT_EQ(recording.backend->flush_all_calls, 0);
}

TEST_F(LoggingFacade, EachLevelReachesTheSameLevelOfTheBackend)
{
    ScopedRecordingBackend recording;
    log_verbose() << "v";
    log_debug() << "d";
    log_info() << "i";
    log_warn() << "w";
    log_error() << "e";
    log_fatal() << "f";
    log_flush_all();

    std::vector<std::string> levels;
    for (const auto& message : recording.log->messages()) {
        levels.push_back(message.level + "=" + message.text);
    }
    EXPECT_EQ(levels, (std::vector<std::string>{"verbose=v", "debug=d", "info=i", "warn=w", "error=e", "fatal=f"}));
    EXPECT_EQ(recording.backend->flush_all_calls, 1);
}

TEST_F(LoggingFacade, InsertionsKeepTheirTypeOnTheWayToTheAdapter)
{
    ScopedRecordingBackend recording;
    log_info() << true << std::uint8_t{200} << std::uint16_t{65535} << std::uint32_t{7} << std::uint64_t{1ULL << 40}
               << std::int8_t{-8} << std::int16_t{-16} << std::int32_t{-32} << std::int64_t{-64} << 0.5F << 0.25 << "c"
               << std::string("str");

    const auto messages = recording.log->messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(
        messages[0].tokens,
        (std::vector<std::string>{"bool:true", "u8:200", "u16:65535", "u32:7", "u64:1099511627776", "i8:-8", "i16:-16",
                                  "i32:-32", "i64:-64", "float:0.5", "double:0.25", "cstr:c", "string:str"}));
    EXPECT_EQ(messages[0].flushes, 1);
}

TEST_F(LoggingFacade, MovedStreamFinishesItsMessageOnce)
{
    ScopedRecordingBackend recording;
    {
        LoggingStream first = log_warn();
        first << "a";
        LoggingStream second = std::move(first);
        second << "b";
        first << "lost";  // NOLINT(bugprone-use-after-move): a moved-from stream is muted
        EXPECT_TRUE(first.is_muted());
    }
    const auto messages = recording.log->messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].text, "ab");
    EXPECT_EQ(messages[0].flushes, 1);
}

TEST_F(LoggingFacade, StreamsHandedOutKeepTheirBackendAfterASwitch)
{
    ScopedRecordingBackend recording;
    {
        LoggingStream stream = log_info();
        set_logging_backend(nullptr);
        stream << "still recorded";
    }
    EXPECT_EQ(recording.log->texts(), std::vector<std::string>{"still recorded"});
}

TEST_F(LoggingFacade, ByteVectorsShowAtMostTenBytesInUpperCaseHex)
{
    EXPECT_EQ(LoggingStream::format_bytes({}), "size: 0, data: {}");
    EXPECT_EQ(LoggingStream::format_bytes({1, 171, 16}), "size: 3, data: {[01][AB][10]}");
    EXPECT_EQ(LoggingStream::format_bytes({0, 1, 2, 3, 4, 5, 6, 7, 8, 10}),
              "size: 10, data: {[00][01][02][03][04][05][06][07][08][0A]}");
    EXPECT_EQ(LoggingStream::format_bytes({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 255}),
              "size: 11, data: {[00][01][02][03][04][05][06][07][08][09]...}");

    ScopedRecordingBackend recording;
    log_debug() << std::vector<std::uint8_t>{0x0A};
    const auto messages = recording.log->messages();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].tokens, std::vector<std::string>{"string:size: 1, data: {[0A]}"});
}

// Runs in a child of its own: the platform log is initialised once per process, and the
// log library keeps per-process state (and a pipe directory) that the child takes along.
TEST_F(LoggingFacade, PlatformBackendIsInstalledOnceAndReused)
{
    const char* const pipe_directory = "/tmp/dltpipes";
    struct stat before {};
    const bool existed = ::stat(pipe_directory, &before) == 0;
    EXPECT_EXIT(
        {
            init_ara_logging("TEST", "first");
            LoggingStream first = log_info();
            const bool installed = !first.is_muted();
            first << "through the platform log" << std::vector<std::uint8_t>{1};
            init_ara_logging("OTHR", "second");
            const bool reused = !log_error().is_muted();
            log_flush_all();
            std::exit(installed && reused ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    if (!existed) {
        (void)::rmdir(pipe_directory);  // only when empty: another process may use it now
    }
}

}  // namespace

// Logs the way the launcher does, initialised by the launcher's own code, so that a test can watch what reaches the log daemon.
//   log_probe once      one debug and one error message, then exit
//   log_probe deliver   the same, then wait for the library to resend what it buffered
//   log_probe threads   many short streams from several threads at once
//   log_probe raise     one error message, then a debug message every 20 ms for up to 5 s,
//                       until the context's level is raised remotely
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "ara/log/logging.hpp"
#include "common/launcher_types.hpp"
#include "launcher/launcher_kinds.hpp"

namespace {

// A message logged before the library's connection to the daemon is up waits in the
// library's buffer until its housekeeping thread resends it. The launcher lives long
// enough for that; a probe that exits at once would lose the message under load, and
// the exit itself deliberately does not wait for the buffer.
void linger_for_resend()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

void log_from_threads()
{
    std::vector<std::thread> threads;
    for (int index = 0; index < 4; ++index) {
        threads.emplace_back([index] {
            for (std::int32_t count = 0; count < 200; ++count) {
                ara::log::LogError() << "thread " << index << " message " << count;
                ara::log::LogDebug() << "filtered " << count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void log_until_raised()
{
    ara::log::LogError() << "probe waiting for a raised level";
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (std::int32_t count = 0; std::chrono::steady_clock::now() < deadline; ++count) {
        ara::log::LogDebug() << "debug after raise" << count;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "once";
    // The launcher's own initialisation, so that its level and mode are what is seen.
    std::string app_name;
    if (!init_logging(COM, app_name)) {
        return 1;
    }
    if (mode == "threads") {
        log_from_threads();
    } else if (mode == "raise") {
        log_until_raised();
    } else {
        ara::log::LogDebug() << "debug message must stay local";
        auto stream = ara::log::LogError();
        stream << "error message from probe" << std::int32_t{42} << true << 1.5 << std::string("end");
        stream.Flush();
    }
    if (mode == "deliver" || mode == "threads") {
        linger_for_resend();
    }
    return 0;
}

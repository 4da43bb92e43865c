// SPDX-License-Identifier: Apache-2.0
// Logs the way the launcher does, initialised by the launcher's own code, so that a test can
// watch what reaches the log daemon.
//   log_probe once    one debug and one error message, then exit
//   log_probe raise   the same, then a debug message every 20 ms for up to 20 s, for the
//                     test to raise the context's level remotely
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "ara/log/logging.hpp"
#include "common/launcher_types.hpp"
#include "launcher/launcher_kinds.hpp"

int main(int argc, char** argv)
{
    // The launcher's own initialisation, so that its level and mode are what is seen.
    std::string app_name;
    if (!init_logging(COM, app_name)) {
        return 1;
    }
    ara::log::LogDebug() << "debug before raise";
    auto stream = ara::log::LogError();
    stream << "error message from probe" << std::int32_t{42} << true << 1.5 << std::string("end");
    stream.Flush();
    if (argc > 1 && std::string(argv[1]) == "raise") {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (std::int32_t count = 0; std::chrono::steady_clock::now() < deadline; ++count) {
            ara::log::LogDebug() << "debug after raise" << count;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    return 0;
}

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/launcher_types.hpp"
#include "launcher/launcher_kinds.hpp"

namespace {

// One row per class of argument: each kind, next to a kind, unreadable, none, too many.
TEST(ArgumentCheck, AcceptsTheKindsAndRejectsEverythingElseWithUsage)
{
    const std::vector<std::pair<std::vector<std::string>, int>> cases{
        {{"0"}, COM}, {{"1"}, DLT},  {{"2"}, PHM},  {{"3"}, UDPNM}, {{"99"}, COM_BRIDGE}, {{"4"}, -1},
        {{"98"}, -1}, {{"100"}, -1}, {{"abc"}, -1}, {{""}, -1},     {{}, -1},             {{"0", "1"}, -1},
    };
    for (const auto& [words, kind] : cases) {
        std::vector<std::string> arguments{"strata-launcher"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        std::uint8_t type = launcher_type_unset;
        testing::internal::CaptureStderr();
        const bool valid = check_argument(static_cast<int>(argv.size()), argv.data(), type);
        const std::string where = arguments.back();
        EXPECT_EQ(valid, kind >= 0) << where;
        EXPECT_TRUE(kind < 0 || type == kind) << where;
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  kind >= 0 ? "" : "Usage: Strata Launcher [daemon]\n0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\n")
            << where;
    }
}

}  // namespace

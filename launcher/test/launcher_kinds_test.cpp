#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/launcher_types.hpp"
#include "launcher/launcher_kinds.hpp"

namespace {

const std::string usage_text =
    "Usage: Strata Launcher [daemon]\n"
    "0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\n";

// One row per class of argument: the kinds, the low byte, out of range, unreadable, none, too many.
TEST(ArgumentCheck, AcceptsTheKindsByTheirLowByteAndRejectsEverythingElseWithUsage)
{
    struct Case {
        std::vector<std::string> arguments;
        bool valid;
        std::uint8_t type;
    };
    const std::vector<Case> cases{
        {{"0"}, true, COM},          {{"1"}, true, DLT},       {{"2x"}, true, PHM},          {{" 3"}, true, UDPNM},
        {{"99"}, true, COM_BRIDGE},  {{"355"}, true, COM_BRIDGE}, {{"4"}, false, 4},          {{"98"}, false, 98},
        {{"100"}, false, 100},       {{"-1"}, false, 255},    {{"abc"}, false, launcher_type_unset},
        {{""}, false, launcher_type_unset}, {{"2147483648"}, false, launcher_type_unset},
        {{}, false, launcher_type_unset},   {{"0", "1"}, false, launcher_type_unset},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments{"strata-launcher"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        std::uint8_t type = launcher_type_unset;
        testing::internal::CaptureStderr();
        const bool valid = check_argument(static_cast<int>(arguments.size()), argv.data(), type);
        const std::string where = c.arguments.empty() ? "(none)" : "'" + c.arguments.front() + "'";
        EXPECT_EQ(valid, c.valid) << where;
        EXPECT_EQ(type, c.type) << where;
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.valid ? "" : usage_text) << where;
    }
}

TEST(InitLogging, SetsTheKindsPrefixOrEmptiesItAndFails)
{
    std::string app_name = "INVALID_PROCESS";
    EXPECT_TRUE(init_logging(UDPNM, app_name));
    EXPECT_EQ(app_name, "UDPMN_LAUNCHER ");
    testing::internal::CaptureStderr();
    EXPECT_FALSE(init_logging(100, app_name));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "No valid process type to initialize dlt. \n");
    EXPECT_EQ(app_name, "");
}

}  // namespace

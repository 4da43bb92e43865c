#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/launcher_types.hpp"
#include "launcher/launcher_kinds.hpp"

namespace {

const std::string usage_text =
    "Usage: Strata Launcher [daemon]\n"
    "0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\n";

struct Argument_result {
    bool valid;
    std::uint8_t type;
    std::string error_output;
};

Argument_result check(std::vector<std::string> arguments)
{
    std::vector<char*> argv;
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::uint8_t type = launcher_type_unset;
    testing::internal::CaptureStderr();
    const bool valid = check_argument(static_cast<int>(arguments.size()), argv.data(), type);
    return {valid, type, testing::internal::GetCapturedStderr()};
}

TEST(ArgumentCheck_AcceptsEveryKindByItsLowByte, Accepted)
{
    const std::vector<std::pair<std::string, std::uint8_t>> cases{
        {"0", COM},  {"1", DLT},    {"2", PHM},  {"3", UDPNM}, {"99", COM_BRIDGE}, {"256", COM},   {"355", COM_BRIDGE},
        {" 1", DLT}, {"1abc", DLT}, {"+2", PHM}, {"2x", PHM},  {"-65533", UDPNM},  {"\t3", UDPNM}, {"0099", COM_BRIDGE},
    };
    for (const auto& [argument, expected] : cases) {
        const Argument_result result = check({"strata-launcher", argument});
        EXPECT_TRUE(result.valid) << "argument '" << argument << "'";
        EXPECT_EQ(result.type, expected) << "argument '" << argument << "'";
        EXPECT_EQ(result.error_output, "") << "argument '" << argument << "'";
    }
}

TEST(ArgumentCheck_RejectsWithUsage, InvalidBytesKeepTheirValue)
{
    const std::vector<std::pair<std::string, std::uint8_t>> cases{
        {"7", 7}, {"-1", 255}, {"4", 4}, {"98", 98}, {"100", 100}, {"355000", static_cast<std::uint8_t>(355000 & 0xFF)},
    };
    for (const auto& [argument, expected] : cases) {
        const Argument_result result = check({"strata-launcher", argument});
        EXPECT_FALSE(result.valid) << "argument '" << argument << "'";
        EXPECT_EQ(result.type, expected) << "argument '" << argument << "'";
        EXPECT_EQ(result.error_output, usage_text) << "argument '" << argument << "'";
    }
}

TEST(ArgumentCheck_RejectsWithUsage, UnreadableOrMissingArgumentLeavesTypeUnset)
{
    const std::vector<std::vector<std::string>> cases{
        {"strata-launcher"},
        {"strata-launcher", "abc"},
        {"strata-launcher", ""},
        {"strata-launcher", "2147483648"},
        {"strata-launcher", "-2147483649"},
        {"strata-launcher", "99999999999999999999"},
        {"strata-launcher", "0", "1"},
    };
    for (const auto& arguments : cases) {
        const Argument_result result = check(arguments);
        EXPECT_FALSE(result.valid) << arguments.size() << " arguments";
        EXPECT_EQ(result.type, launcher_type_unset);
        EXPECT_EQ(result.error_output, usage_text);
    }
}

TEST(LauncherKinds, TableHoldsTheFivePrefixesWithTrailingBlank)
{
    EXPECT_EQ(launcher_type_names.at(COM), "COM_LAUNCHER ");
    EXPECT_EQ(launcher_type_names.at(COM_BRIDGE), "COM_BRIDGE_LAUNCHER ");
    EXPECT_EQ(launcher_type_names.at(DLT), "DLT_LAUNCHER ");
    EXPECT_EQ(launcher_type_names.at(PHM), "PHM_LAUNCHER ");
    EXPECT_EQ(launcher_type_names.at(UDPNM), "UDPMN_LAUNCHER ");
    EXPECT_EQ(dtc_instance_id, "12452");
}

TEST(LauncherKinds, LookupOfInvalidKindYieldsEmptyName)
{
    EXPECT_EQ(launcher_type_names[42], "");
    EXPECT_EQ(launcher_type_names.count(42), 1U);
    launcher_type_names.erase(42);
}

TEST(InitLogging, ValidKindsSetPrefixAndIdentity)
{
    struct Expected {
        std::uint8_t type;
        const char* name;
        const char* app_id;
        const char* description;
    };
    const std::vector<Expected> cases{
        {COM, "COM_LAUNCHER ", "LAUC", "Launcher for com daemon container"},
        {COM_BRIDGE, "COM_BRIDGE_LAUNCHER ", "LAUC", "Launcher for com bridge process"},
        {DLT, "DLT_LAUNCHER ", "LAUD", "Launcher for DLT daemon container"},
        {PHM, "PHM_LAUNCHER ", "LAUH", "Launcher for hm daemon container"},
        {UDPNM, "UDPMN_LAUNCHER ", "LAUU", "Launcher for UdpNm daemon container"},
    };
    for (const auto& expected : cases) {
        std::string app_name = "INVALID_PROCESS";
        testing::internal::CaptureStderr();
        EXPECT_TRUE(init_logging(expected.type, app_name));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(app_name, expected.name);
        Logging_identity identity{};
        ASSERT_TRUE(logging_identity(expected.type, identity));
        EXPECT_STREQ(identity.app_id, expected.app_id);
        EXPECT_STREQ(identity.description, expected.description);
    }
}

TEST(InitLogging, InvalidKindEmptiesPrefixAndFails)
{
    for (const std::uint8_t type : {std::uint8_t{7}, std::uint8_t{100}, std::uint8_t{255}}) {
        std::string app_name = "INVALID_PROCESS";
        testing::internal::CaptureStderr();
        EXPECT_FALSE(init_logging(type, app_name));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "No valid process type to initialize dlt. \n");
        EXPECT_EQ(app_name, "");
        Logging_identity identity{};
        EXPECT_FALSE(logging_identity(type, identity));
    }
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
#include "launcher/launcher_kinds.hpp"

#include <stdexcept>

#include "common/launcher_types.hpp"
#include "launcher/console.hpp"

std::map<std::uint8_t, std::string> launcher_type_names{
    {COM, "COM_LAUNCHER "}, {COM_BRIDGE, "COM_BRIDGE_LAUNCHER "}, {DLT, "DLT_LAUNCHER "},
    {PHM, "PHM_LAUNCHER "}, {UDPNM, "UDPMN_LAUNCHER "},
};

std::string dtc_instance_id{"12452"};

// COM and COM_BRIDGE share one identifier on purpose: log viewers filter them as one.
bool logging_identity(std::uint8_t type, Logging_identity& identity)
{
    switch (type) {
        case COM:
            identity = {"LAUC", "Launcher for com daemon container"};
            return true;
        case DLT:
            identity = {"LAUD", "Launcher for DLT daemon container"};
            return true;
        case PHM:
            identity = {"LAUH", "Launcher for hm daemon container"};
            return true;
        case UDPNM:
            identity = {"LAUU", "Launcher for UdpNm daemon container"};
            return true;
        case COM_BRIDGE:
            identity = {"LAUC", "Launcher for com bridge process"};
            return true;
        default:
            return false;
    }
}

void print_usage()
{
    console_line("Usage: Strata Launcher [daemon]");
    console_line("0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE");
}

bool is_valid_launcher_type(std::uint8_t type)
{
    return type <= UDPNM || type == COM_BRIDGE;
}

bool launcher_type_from_text(const char* text, std::uint8_t& type)
{
    int value = 0;
    try {
        value = std::stoi(text);
    } catch (const std::logic_error&) {  // invalid_argument and out_of_range alike
        return false;
    }
    // The byte is cut before the check: 256 is COM and -1 (255) is invalid.
    type = static_cast<std::uint8_t>(static_cast<unsigned int>(value) & 0xFFU);
    return is_valid_launcher_type(type);
}

bool check_argument(int argc, char** argv, std::uint8_t& type)
{
    if (argc != 2 || !launcher_type_from_text(argv[1], type)) {
        print_usage();
        return false;
    }
    return true;
}

void init_ara_logging(const std::string& app_id, const std::string& description, ara::log::LogLevel level,
                      ara::log::LogMode mode, const std::string& directory) noexcept
{
    ara::log::InitLogging(app_id, description, level, mode, directory);
}

bool init_logging(std::uint8_t type, std::string& app_name)
{
    app_name = launcher_type_names[type];
    Logging_identity identity{};
    if (!logging_identity(type, identity)) {
        console_line("No valid process type to initialize dlt. ");
        return false;
    }
    init_ara_logging(identity.app_id, identity.description, ara::log::LogLevel::kError, ara::log::LogMode::kRemote, "");
    return true;
}

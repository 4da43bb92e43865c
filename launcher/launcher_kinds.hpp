// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_LAUNCHER_KINDS_HPP
#define STRATA_LAUNCHER_LAUNCHER_KINDS_HPP

#include <cstdint>
#include <map>
#include <string>

#include "ara/log/logging.hpp"

// Console prefix per daemon kind. Looked up with operator[]: an invalid kind yields (and
// adds) an empty name, so a lookup never fails.
extern std::map<std::uint8_t, std::string> launcher_type_names;

// Monitor instance of the DLT launcher's DTC service.
extern std::string dtc_instance_id;

void print_usage();

// Reads the kind from the single argument. The kind is the low byte of the number, so
// 256 is COM; an invalid byte is kept in `type` all the same. False (after the usage
// text) when the argument is missing, unreadable or names no kind.
bool check_argument(int argc, char** argv, std::uint8_t& type);

bool is_valid_launcher_type(std::uint8_t type);

// The kind named by a decimal text, cut to its low byte as the command line is. False
// when the text is no number or the byte names no kind; `type` keeps the byte when there
// is one.
bool launcher_type_from_text(const char* text, std::uint8_t& type);

// What a kind registers with ara::log.
struct Logging_identity {
    const char* app_id;
    const char* description;
};

// False for a kind without an identity.
bool logging_identity(std::uint8_t type, Logging_identity& identity);

// Never throws: ara::log::InitLogging is noexcept, so a throw inside it ends the process.
void init_ara_logging(const std::string& app_id, const std::string& description, ara::log::LogLevel level,
                      ara::log::LogMode mode, const std::string& directory) noexcept;

// Sets `app_name` to the kind's console prefix and registers with ara::log under the
// kind's application identifier. False for an invalid kind.
bool init_logging(std::uint8_t type, std::string& app_name);

#endif

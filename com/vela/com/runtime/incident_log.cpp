#include "vela/com/runtime/incident_log.hpp"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "ara/log/logging.hpp"

namespace vela {
namespace com {
namespace runtime {

std::string Incident_log::format(const std::string& incident, const nlohmann::json& details)
{
    nlohmann::json record = {{"incident", incident}};
    if (details.is_object()) {
        record.update(details);
    }
    return record.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string Incident_log::hex(std::uint16_t value)
{
    char text[8];
    (void)std::snprintf(text, sizeof text, "0x%04x", value);
    return text;
}

void Incident_log::report(const std::string& incident, const nlohmann::json& details)
{
    const std::string line = format(incident, details);
    ara::log::LogWarn() << line;
    static const bool trace = std::getenv("STRATA_COM_TRACE") != nullptr;
    if (trace) {
        std::cerr << "[com] " << line << std::endl;
    }
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

#ifndef VELA_COM_RUNTIME_INCIDENT_LOG_HPP
#define VELA_COM_RUNTIME_INCIDENT_LOG_HPP

#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

namespace vela {
namespace com {
namespace runtime {

// Protocol anomalies and runtime troubles, each one line of JSON through ara::log
// (and on standard error when STRATA_COM_TRACE is set), so that they can be filtered
// and counted by field.
class Incident_log {
public:
    static void report(const std::string& incident, const nlohmann::json& details);
    static std::string format(const std::string& incident, const nlohmann::json& details);
    // Identifiers are logged as "0x1a2b", the way protocol analysers show them.
    static std::string hex(std::uint16_t value);
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

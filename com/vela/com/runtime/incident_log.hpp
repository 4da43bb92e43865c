// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_INCIDENT_LOG_HPP
#define VELA_COM_RUNTIME_INCIDENT_LOG_HPP

#include <cstddef>
#include <cstdint>
#include <string>

#include <nlohmann/json.hpp>

namespace vela {
namespace com {
namespace runtime {

// Protocol anomalies and runtime troubles, each one line of JSON through ara::log
// (and on standard error when STRATA_COM_TRACE is set), so that they can be filtered
// and counted by field. A peer can provoke incidents at the rate it sends, so each kind
// gets a budget of lines per window; the next line after a window with more carries
// the count left out as "suppressed".
class Incident_log {
public:
    static constexpr std::size_t kLinesPerWindow = 20;
    static constexpr int kWindowSeconds = 10;

    static void report(const std::string& incident, const nlohmann::json& details);
    // True when a line of this kind would be left out now; it is then counted as
    // suppressed. Lets a caller on a hot path skip building the details.
    static bool over_budget(const std::string& incident);
    static std::string format(const std::string& incident, const nlohmann::json& details);
    // Identifiers are logged as "0x1a2b", the way protocol analysers show them.
    static std::string hex(std::uint16_t value);
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

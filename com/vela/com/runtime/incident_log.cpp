// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/incident_log.hpp"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>

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

namespace {
struct Budget {
    std::chrono::steady_clock::time_point window_start;
    std::size_t lines = 0;
    std::size_t suppressed = 0;
};

std::mutex budget_mutex;
std::map<std::string, Budget> budgets;

// The kind's budget with its window renewed when due; called under budget_mutex.
Budget& budget_of(const std::string& incident)
{
    Budget& budget = budgets[incident];
    const auto now = std::chrono::steady_clock::now();
    if (budget.lines == 0 ||
        now - budget.window_start >= std::chrono::seconds(Incident_log::kWindowSeconds)) {
        budget.window_start = now;
        budget.lines = 0;
    }
    return budget;
}
}  // namespace

bool Incident_log::over_budget(const std::string& incident)
{
    std::lock_guard<std::mutex> lock(budget_mutex);
    Budget& budget = budget_of(incident);
    if (budget.lines < kLinesPerWindow) {
        return false;
    }
    ++budget.suppressed;
    return true;
}

void Incident_log::report(const std::string& incident, const nlohmann::json& details)
{
    nlohmann::json record = details;
    {
        std::lock_guard<std::mutex> lock(budget_mutex);
        Budget& budget = budget_of(incident);
        if (budget.lines == kLinesPerWindow) {
            ++budget.suppressed;
            return;
        }
        ++budget.lines;
        if (budget.suppressed != 0 && record.is_object()) {
            record["suppressed"] = budget.suppressed;
            budget.suppressed = 0;
        }
    }
    const std::string line = format(incident, record);
    ara::log::LogWarn() << line;
    static const bool trace = std::getenv("STRATA_COM_TRACE") != nullptr;
    if (trace) {
        std::cerr << "[com] " << line << std::endl;
    }
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

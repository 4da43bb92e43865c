// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/deployment.hpp"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace vela {
namespace com {
namespace runtime {

namespace {
using nlohmann::json;

// Identifiers are written in hex in most tools, so both "0x1A2B" and 6699 are accepted.
std::uint32_t number(const json& value, std::uint32_t max)
{
    std::uint64_t parsed = 0;
    if (value.is_string()) {
        std::size_t used = 0;
        const std::string text = value.get<std::string>();
        parsed = std::stoull(text, &used, 0);
        if (used != text.size()) {
            throw std::invalid_argument("not a number: " + text);
        }
    } else {
        parsed = value.get<std::uint64_t>();
    }
    if (parsed > max) {
        throw std::out_of_range("value too large: " + value.dump());
    }
    return static_cast<std::uint32_t>(parsed);
}

template <typename T>
void optional_number(const json& object, const char* key, T& target, std::uint32_t max = 0xFFFFFFFFU)
{
    if (object.contains(key)) {
        target = static_cast<T>(number(object.at(key), max));
    }
}

const json& member(const json& object, const char* key)
{
    static const json empty = json::object();
    const auto found = object.find(key);
    return found != object.end() ? *found : empty;
}

Service_deployment parse_service(const json& item)
{
    Service_deployment service;
    service.name = item.at("name").get<std::string>();
    service.service_id = static_cast<std::uint16_t>(number(item.at("service_id"), 0xFFFE));
    optional_number(item, "major", service.major, 0xFE);
    optional_number(item, "minor", service.minor);
    optional_number(item, "port", service.port, 0xFFFF);
    for (const auto& entry : member(item, "instances").items()) {
        service.instances[entry.key()] = static_cast<std::uint16_t>(number(entry.value(), 0xFFFE));
    }
    for (const auto& entry : member(item, "methods").items()) {
        service.methods[entry.key()] = static_cast<std::uint16_t>(number(entry.value(), 0x7FFF));
    }
    for (const auto& entry : member(item, "events").items()) {
        Event_deployment event;
        event.id = static_cast<std::uint16_t>(number(entry.value().at("id"), 0xFFFF));
        event.eventgroup = static_cast<std::uint16_t>(number(entry.value().at("eventgroup"), 0xFFFE));
        event.field = entry.value().value("field", false);
        service.events[entry.key()] = event;
    }
    return service;
}

void apply_unicast_override(Deployment& deployment)
{
    const char* unicast = std::getenv("STRATA_COM_UNICAST");
    if (unicast != nullptr && *unicast != '\0') {
        deployment.unicast = unicast;
    }
}

const char* const kSample = R"({
  "network": { "unicast": "127.0.0.1", "port": 0, "client_id": 0 },
  "service_discovery": {
    "multicast": "224.244.224.245", "port": 30490,
    "initial_delay_min_ms": 10, "initial_delay_max_ms": 50,
    "repetitions_base_delay_ms": 30, "repetitions_max": 3,
    "cyclic_offer_delay_ms": 1000, "ttl_s": 3
  },
  "request_timeout_ms": 5000,
  "limits": {
    "remote_offers": 1024, "remote_offers_per_peer": 128,
    "subscribers_per_eventgroup": 32, "find_answers_per_datagram": 16
  },
  "services": [
    {
      "name": "lumo::services::diagnosticdatadistribution::DiagnosticDataDistribution",
      "service_id": "0x1A2B", "major": 1, "minor": 0, "port": 30501,
      "instances": { "1": 1 },
      "methods": { "getDiagnosticData": "0x0001", "getDiagnosticDataValues": "0x0002", "dataValuesHash.Get": "0x0003" },
      "events": { "dataValuesHash": { "id": "0x8001", "eventgroup": "0x0001", "field": true } }
    },
    {
      "name": "vela::dm::dem::DiagnosticMonitor",
      "service_id": "0x2E10", "major": 1, "minor": 0, "port": 30502,
      "instances": { "12452": "0x30A4" },
      "methods": { "InitMonitor": "0x0001" },
      "events": { "MonitorAction": { "id": "0x8001", "eventgroup": "0x0001" } }
    }
  ]
})";
}  // namespace

bool Service_deployment::instance_id(const std::string& specifier, std::uint16_t& id) const
{
    const auto found = instances.find(specifier);
    if (found != instances.end()) {
        id = found->second;
        return true;
    }
    try {
        id = static_cast<std::uint16_t>(number(json(specifier), 0xFFFE));
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

std::uint16_t Service_deployment::method_id(const std::string& method) const
{
    const auto found = methods.find(method);
    if (found == methods.end()) {
        throw std::runtime_error("deployment of " + name + " has no method " + method);
    }
    return found->second;
}

const Event_deployment& Service_deployment::event(const std::string& event_name) const
{
    const auto found = events.find(event_name);
    if (found == events.end()) {
        throw std::runtime_error("deployment of " + name + " has no event " + event_name);
    }
    return found->second;
}

Deployment Deployment::defaults()
{
    Deployment deployment;
    std::string error;
    (void)from_json(kSample, deployment, error);
    return deployment;
}

bool Deployment::from_json(const std::string& text, Deployment& out, std::string& error)
{
    try {
        const json root = json::parse(text);
        Deployment parsed;
        const json& network = member(root, "network");
        parsed.unicast = network.value("unicast", parsed.unicast);
        optional_number(network, "port", parsed.port, 0xFFFF);
        optional_number(network, "client_id", parsed.client_id, 0xFFFF);
        const json& sd = member(root, "service_discovery");
        parsed.sd_multicast = sd.value("multicast", parsed.sd_multicast);
        optional_number(sd, "port", parsed.sd_port, 0xFFFF);
        optional_number(sd, "initial_delay_min_ms", parsed.timing.initial_delay_min_ms);
        optional_number(sd, "initial_delay_max_ms", parsed.timing.initial_delay_max_ms);
        optional_number(sd, "repetitions_base_delay_ms", parsed.timing.repetitions_base_delay_ms);
        optional_number(sd, "repetitions_max", parsed.timing.repetitions_max, 16);
        optional_number(sd, "cyclic_offer_delay_ms", parsed.timing.cyclic_offer_delay_ms);
        optional_number(sd, "ttl_s", parsed.timing.ttl_s, 0xFFFFFE);
        optional_number(root, "request_timeout_ms", parsed.request_timeout_ms);
        const json& limits = member(root, "limits");
        optional_number(limits, "remote_offers", parsed.limits.remote_offers);
        optional_number(limits, "remote_offers_per_peer", parsed.limits.remote_offers_per_peer);
        optional_number(limits, "subscribers_per_eventgroup", parsed.limits.subscribers_per_eventgroup);
        optional_number(limits, "find_answers_per_datagram", parsed.limits.find_answers_per_datagram);
        if (parsed.timing.initial_delay_max_ms < parsed.timing.initial_delay_min_ms) {
            throw std::invalid_argument("initial_delay_max_ms is below initial_delay_min_ms");
        }
        if (root.contains("services")) {
            for (const auto& item : root.at("services")) {
                parsed.services.push_back(parse_service(item));
            }
        }
        out = parsed;
        return true;
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
}

Deployment Deployment::load(const std::string& path, std::string& note)
{
    std::string chosen = path;
    if (chosen.empty()) {
        const char* env = std::getenv("STRATA_COM_DEPLOYMENT");
        chosen = env != nullptr && *env != '\0' ? env : kDefaultDeploymentPath;
    }
    Deployment deployment = defaults();
    if (!chosen.empty() && chosen.front() == '{') {
        std::string error;
        if (!from_json(chosen, deployment, error)) {
            note = "deployment text invalid (" + error + "), using built-in defaults";
        }
        apply_unicast_override(deployment);
        return deployment;
    }
    std::ifstream file(chosen);
    if (!file) {
        note = "deployment " + chosen + " not readable, using built-in defaults";
    } else {
        std::stringstream text;
        text << file.rdbuf();
        std::string error;
        if (!from_json(text.str(), deployment, error)) {
            note = "deployment " + chosen + " invalid (" + error + "), using built-in defaults";
        }
    }
    apply_unicast_override(deployment);
    return deployment;
}

const Service_deployment* Deployment::service(const std::string& name) const
{
    for (const auto& candidate : services) {
        if (candidate.name == name) {
            return &candidate;
        }
    }
    return nullptr;
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

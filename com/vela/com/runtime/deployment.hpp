// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_DEPLOYMENT_HPP
#define VELA_COM_RUNTIME_DEPLOYMENT_HPP

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vela {
namespace com {
namespace runtime {

struct Event_deployment {
    std::uint16_t id = 0;
    std::uint16_t eventgroup = 0;
    bool field = false;  // a field's notifier: new subscribers get the current value
};

struct Service_deployment {
    std::string name;
    std::uint16_t service_id = 0;
    std::uint8_t major = 1;
    std::uint32_t minor = 0;
    std::uint16_t port = 0;                          // provider port; 0 shares the process's own port
    std::map<std::string, std::uint16_t> instances;  // instance specifier -> instance ID
    std::map<std::string, std::uint16_t> methods;
    std::map<std::string, Event_deployment> events;

    // The instance ID for a specifier: mapped, else the specifier read as a number; false if neither.
    bool instance_id(const std::string& specifier, std::uint16_t& id) const;
    std::uint16_t method_id(const std::string& method) const;
    const Event_deployment& event(const std::string& event_name) const;
};

struct Sd_timing {
    std::uint32_t initial_delay_min_ms = 10;
    std::uint32_t initial_delay_max_ms = 50;
    std::uint32_t repetitions_base_delay_ms = 30;
    std::uint32_t repetitions_max = 3;
    std::uint32_t cyclic_offer_delay_ms = 1000;
    std::uint32_t ttl_s = 3;
};

// What a peer may make this process hold or send. The runtime serves a handful of
// services; the defaults leave room for a large vehicle network and cap what a
// hostile or broken peer can cost.
struct Sd_limits {
    std::uint32_t remote_offers = 1024;            // service instances of other nodes stored
    std::uint32_t remote_offers_per_peer = 128;    // of them from one discovery endpoint
    std::uint32_t subscribers_per_eventgroup = 32;  // per offered instance and eventgroup
    std::uint32_t find_answers_per_datagram = 16;  // offers sent in answer to one datagram of finds
};

// Where and how this process talks SOME/IP. Read from JSON; the built-in defaults
// equal the installed sample file.
struct Deployment {
    std::string unicast = "127.0.0.1";
    std::uint16_t port = 0;
    std::uint16_t client_id = 0;  // 0: derived from the process ID
    std::string sd_multicast = "224.244.224.245";
    std::uint16_t sd_port = 30490;
    Sd_timing timing;
    Sd_limits limits;
    std::uint32_t request_timeout_ms = 5000;
    std::vector<Service_deployment> services;

    static Deployment defaults();
    // Parses `text`; on failure returns false and leaves the reason in `error`.
    static bool from_json(const std::string& text, Deployment& out, std::string& error);
    // Reads `path` ("" = $STRATA_COM_DEPLOYMENT or the installed default; a value starting
    // with '{' is the deployment text itself); falls back to the defaults and says why in
    // `note`. $STRATA_COM_UNICAST overrides the unicast address.
    static Deployment load(const std::string& path, std::string& note);

    const Service_deployment* service(const std::string& name) const;
};

constexpr const char* kDefaultDeploymentPath = "/etc/strata/strata-com.json";

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_TEST_LOOPBACK_RUNTIME_HPP
#define STRATA_DTC_TEST_LOOPBACK_RUNTIME_HPP

// Runs the communication runtime of a test process on loopback, with a service discovery
// port of its own so that test processes running side by side never see each other's
// offers.

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "vela/com/runtime/component_singleton.hpp"

class LoopbackRuntime final : public ::testing::Environment {
public:
    void SetUp() override
    {
        const std::string sd_port = std::to_string(33000 + ::getpid() % 16000);
        vela::com::runtime::Component_singleton::startup(false, R"({
  "network": { "unicast": "127.0.0.1", "port": 0, "client_id": 0 },
  "service_discovery": { "multicast": "224.244.224.245", "port": )" +
                                                                    sd_port + R"(,
    "initial_delay_min_ms": 1, "initial_delay_max_ms": 5, "repetitions_base_delay_ms": 10,
    "repetitions_max": 3, "cyclic_offer_delay_ms": 500, "ttl_s": 3 },
  "request_timeout_ms": 1000,
  "services": [
    { "name": "lumo::services::diagnosticdatadistribution::DiagnosticDataDistribution",
      "service_id": "0x1A2B", "major": 1, "minor": 0, "port": 0, "instances": { "1": 1 },
      "methods": { "getDiagnosticData": "0x0001", "getDiagnosticDataValues": "0x0002", "dataValuesHash.Get": "0x0003" },
      "events": { "dataValuesHash": { "id": "0x8001", "eventgroup": "0x0001", "field": true } } },
    { "name": "vela::dm::dem::DiagnosticMonitor",
      "service_id": "0x2E10", "major": 1, "minor": 0, "port": 0, "instances": { "12452": "0x30A4" },
      "methods": { "InitMonitor": "0x0001" },
      "events": { "MonitorAction": { "id": "0x8001", "eventgroup": "0x0001" } } }
  ]
})");
    }
    void TearDown() override { vela::com::runtime::Component_singleton::shutdown(); }
};

#endif

// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "vela/com/runtime/deployment.hpp"
#include "vela/com/runtime/incident_log.hpp"

namespace {
using vela::com::runtime::Deployment;

TEST(Deployment, SampleFileEqualsBuiltInDefaults)
{
    std::ifstream file(STRATA_COM_SAMPLE_DEPLOYMENT);
    std::stringstream text;
    text << file.rdbuf();
    Deployment sample;
    std::string error;
    ASSERT_TRUE(Deployment::from_json(text.str(), sample, error)) << error;
    const Deployment defaults = Deployment::defaults();
    EXPECT_EQ(sample.unicast, defaults.unicast);
    EXPECT_EQ(sample.sd_port, 30490);
    ASSERT_EQ(sample.services.size(), defaults.services.size());
    const auto* ddd = sample.service("lumo::services::diagnosticdatadistribution::DiagnosticDataDistribution");
    ASSERT_NE(ddd, nullptr);
    EXPECT_EQ(ddd->service_id, 0x1A2B);
    EXPECT_EQ(ddd->method_id("getDiagnosticDataValues"), defaults.services[0].method_id("getDiagnosticDataValues"));
    std::uint16_t instance = 0;
    ASSERT_TRUE(sample.service("vela::dm::dem::DiagnosticMonitor")->instance_id("12452", instance));
    EXPECT_EQ(instance, 0x30A4);
}

TEST(Deployment, BadInputIsRefusedWithAReasonAndLoadFallsBack)
{
    Deployment parsed;
    std::string error;
    EXPECT_FALSE(Deployment::from_json("{\"services\": [{\"name\": \"x\", \"service_id\": \"0x1G\"}]}", parsed, error));
    EXPECT_NE(error.find("0x1G"), std::string::npos);
    EXPECT_FALSE(Deployment::from_json("{\"network\": {\"port\": 70000}}", parsed, error));
    EXPECT_FALSE(Deployment::from_json("not json", parsed, error));

    std::string note;
    ::setenv("STRATA_COM_UNICAST", "127.0.0.9", 1);
    const Deployment loaded = Deployment::load("/nonexistent/strata-com.json", note);
    ::unsetenv("STRATA_COM_UNICAST");
    EXPECT_NE(note.find("/nonexistent/strata-com.json"), std::string::npos);
    EXPECT_EQ(loaded.unicast, "127.0.0.9");
    EXPECT_EQ(loaded.services.size(), 2u);
}

TEST(IncidentLog, RecordIsOneLineOfJsonWithTheGivenFields)
{
    const std::string line = vela::com::runtime::Incident_log::format(
        "reboot_detected", {{"peer", "127.0.0.1:30490"}, {"service", vela::com::runtime::Incident_log::hex(0x1A2B)}});
    EXPECT_EQ(line.find('\n'), std::string::npos);
    const auto record = nlohmann::json::parse(line);
    EXPECT_EQ(record.at("incident"), "reboot_detected");
    EXPECT_EQ(record.at("service"), "0x1a2b");
}
}  // namespace

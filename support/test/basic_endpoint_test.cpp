// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/basic_endpoint.hpp"
#include "support/test/recording_logging_backend.hpp"

namespace {

// Runs every hook as scripted: 'f' fails, 'e' throws a standard exception, 'x' anything
// else; the info log records which ran, in order.
class ScriptedEndpoint final : public BasicEndpoint {
public:
    ScriptedEndpoint() : BasicEndpoint("7", "Service") {}
    std::map<std::string, char> script;
    std::string GetServiceName() const override { return "N"; }
    std::string GetVersion() const override { return "1.0"; }

private:
    bool run(const std::string& hook)
    {
        const char outcome = script.count(hook) != 0 ? script[hook] : ' ';
        if (outcome == 'e') {
            throw std::runtime_error("boom");
        }
        if (outcome == 'x') {
            throw 42;
        }
        return outcome != 'f';
    }
    bool Create() override { return run("Create"); }
    bool Delete() override { return run("Delete"); }
    bool Initialize() override { return run("Initialize"); }
    bool Uninitialize() override { return run("Uninitialize"); }
    bool Start() override { return run("Start"); }
    bool Stop() override { return run("Stop"); }
};

using Texts = std::vector<std::string>;

// A failed or throwing step of StartUp is undone with every earlier one, in reverse order,
// even when the undoing steps fail too; ShutDown runs all three whatever they return.
TEST(EndpointLifecycle, FailuresUnwindEveryStepAlreadyTakenAndExceptionsBecomeFalse)
{
    struct Case {
        bool start_up;
        std::map<std::string, char> script;
        Texts calls;
        Texts errors;
    };
    const std::vector<Case> cases{
        {true, {}, {"Create", "Initialize", "Start"}, {}},
        {true, {{"Create", 'f'}}, {"Create", "Delete"}, {}},
        {true, {{"Initialize", 'f'}}, {"Create", "Initialize", "Uninitialize", "Delete"}, {}},
        {true,
         {{"Start", 'x'}, {"Stop", 'e'}, {"Uninitialize", 'f'}},
         {"Create", "Initialize", "Start", "Stop", "Uninitialize", "Delete"},
         {"TryStart -> Unknown Exception", "TryStop -> Exception: boom"}},
        {false, {{"Stop", 'f'}}, {"Stop", "Uninitialize", "Delete"}, {}},
        {false, {{"Uninitialize", 'e'}}, {"Stop", "Uninitialize", "Delete"}, {"TryUninitialize -> Exception: boom"}},
        {false, {}, {"Stop", "Uninitialize", "Delete"}, {}},
    };
    ScriptedEndpoint endpoint;
    for (const Case& c : cases) {
        ScopedRecordingBackend recording;
        endpoint.script = c.script;
        EXPECT_EQ(c.start_up ? endpoint.StartUp() : endpoint.ShutDown(), c.script.empty());
        Texts calls;
        for (const std::string& call : c.calls) {
            calls.push_back("Service 'N', Instance '7', Version '1.0': Try" + call);
        }
        EXPECT_EQ(recording.log->texts("info"), calls);
        EXPECT_EQ(recording.log->texts("error"), c.errors);
    }
    EXPECT_EQ(endpoint.GetInstance(), "7");
}

}  // namespace

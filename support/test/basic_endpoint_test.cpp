#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/basic_endpoint.hpp"
#include "support/test/recording_logging_backend.hpp"

namespace {

enum class Outcome { succeed, fail, throw_standard, throw_other };

// Runs every hook as scripted and records the order in which they were called.
class ScriptedEndpoint final : public BasicEndpoint {
public:
    ScriptedEndpoint() : BasicEndpoint("7", "Service") {}

    std::map<std::string, Outcome> script;
    std::vector<std::string> calls;

    std::string GetServiceName() const override { return "N"; }
    std::string GetVersion() const override { return "1.0"; }

private:
    bool run(const std::string& hook)
    {
        calls.push_back(hook);
        const auto found = script.find(hook);
        const Outcome outcome = found == script.end() ? Outcome::succeed : found->second;
        switch (outcome) {
            case Outcome::fail:
                return false;
            case Outcome::throw_standard:
                throw std::runtime_error("boom");
            case Outcome::throw_other:
                throw 42;
            case Outcome::succeed:
                break;
        }
        return true;
    }
    bool Create() override { return run("Create"); }
    bool Delete() override { return run("Delete"); }
    bool Initialize() override { return run("Initialize"); }
    bool Uninitialize() override { return run("Uninitialize"); }
    bool Start() override { return run("Start"); }
    bool Stop() override { return run("Stop"); }
};

using Calls = std::vector<std::string>;

class EndpointLifecycle : public ::testing::Test {
protected:
    ScopedRecordingBackend recording;
    ScriptedEndpoint endpoint;
};

TEST_F(EndpointLifecycle, StartUpRunsCreateInitializeStartAndLogsEachWithThePrefix)
{
    EXPECT_TRUE(endpoint.StartUp());
    EXPECT_EQ(endpoint.calls, (Calls{"Create", "Initialize", "Start"}));
    EXPECT_EQ(endpoint.GetDescription(), "Service 'N', Instance '7', Version '1.0': ");
    EXPECT_EQ(endpoint.GetInstance(), "7");
    EXPECT_EQ(recording.log->texts("info"), (Calls{"Service 'N', Instance '7', Version '1.0': TryCreate",
                                                   "Service 'N', Instance '7', Version '1.0': TryInitialize",
                                                   "Service 'N', Instance '7', Version '1.0': TryStart"}));
    EXPECT_TRUE(recording.log->texts("error").empty());
}

// A failed or throwing step of StartUp is undone with every earlier one, in reverse order,
// even when the undoing steps fail too; ShutDown runs all three whatever they return.
TEST_F(EndpointLifecycle, FailuresUnwindEveryStepAlreadyTaken)
{
    const Calls all{"Create", "Initialize", "Start", "Stop", "Uninitialize", "Delete"};
    struct Case {
        bool start_up;
        std::map<std::string, Outcome> script;
        Calls expected;
    };
    const std::vector<Case> cases{
        {true, {{"Create", Outcome::fail}}, {"Create", "Delete"}},
        {true, {{"Initialize", Outcome::fail}}, {"Create", "Initialize", "Uninitialize", "Delete"}},
        {true, {{"Start", Outcome::fail}}, all},
        {true, {{"Start", Outcome::throw_other}, {"Stop", Outcome::throw_standard}, {"Uninitialize", Outcome::fail}},
         all},
        {false, {{"Stop", Outcome::fail}}, {"Stop", "Uninitialize", "Delete"}},
        {false, {{"Uninitialize", Outcome::throw_standard}}, {"Stop", "Uninitialize", "Delete"}},
    };
    for (const Case& c : cases) {
        endpoint.calls.clear();
        endpoint.script = c.script;
        EXPECT_FALSE(c.start_up ? endpoint.StartUp() : endpoint.ShutDown());
        EXPECT_EQ(endpoint.calls, c.expected);
    }
    endpoint.script.clear();
    EXPECT_TRUE(endpoint.ShutDown());
}

TEST_F(EndpointLifecycle, ExceptionsBecomeFalseWithTheOperationTextOnly)
{
    endpoint.script = {{"Create", Outcome::throw_standard}};
    EXPECT_FALSE(endpoint.StartUp());
    EXPECT_EQ(endpoint.calls, (Calls{"Create", "Delete"}));
    EXPECT_EQ(recording.log->texts("error"), Calls{"TryCreate -> Exception: boom"});

    recording.log->clear();
    endpoint.script = {{"Stop", Outcome::throw_other}};
    EXPECT_FALSE(endpoint.TryStop());
    EXPECT_EQ(recording.log->texts("error"), Calls{"TryStop -> Unknown Exception"});
}

TEST(EndpointLifecycleMuted, HooksRunTheSameWithoutALog)
{
    set_logging_backend(nullptr);
    ScriptedEndpoint endpoint;
    endpoint.script = {{"Initialize", Outcome::throw_standard}};
    EXPECT_FALSE(endpoint.StartUp());
    EXPECT_EQ(endpoint.calls, (Calls{"Create", "Initialize", "Uninitialize", "Delete"}));
}

}  // namespace

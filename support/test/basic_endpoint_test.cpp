#include <gtest/gtest.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/basic_endpoint.hpp"
#include "support/test/recording_logging_backend.hpp"

namespace {

enum class Outcome { succeed, fail, throw_standard, throw_other };

// Runs every hook as scripted; the info log records which ran, in order.
class ScriptedEndpoint final : public BasicEndpoint {
public:
    ScriptedEndpoint() : BasicEndpoint("7", "Service") {}
    std::map<std::string, Outcome> script;
    std::string GetServiceName() const override { return "N"; }
    std::string GetVersion() const override { return "1.0"; }

private:
    bool run(const std::string& hook)
    {
        switch (script.count(hook) != 0 ? script[hook] : Outcome::succeed) {
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

using Texts = std::vector<std::string>;

// A failed or throwing step of StartUp is undone with every earlier one, in reverse order,
// even when the undoing steps fail too; ShutDown runs all three whatever they return.
TEST(EndpointLifecycle, FailuresUnwindEveryStepAlreadyTakenAndExceptionsBecomeFalse)
{
    struct Case {
        bool start_up;
        std::map<std::string, Outcome> script;
        Texts calls;
        Texts errors;
    };
    const std::vector<Case> cases{
        {true, {}, {"Create", "Initialize", "Start"}, {}},
        {true, {{"Create", Outcome::fail}}, {"Create", "Delete"}, {}},
        {true, {{"Initialize", Outcome::fail}}, {"Create", "Initialize", "Uninitialize", "Delete"}, {}},
        {true,
         {{"Start", Outcome::throw_other}, {"Stop", Outcome::throw_standard}, {"Uninitialize", Outcome::fail}},
         {"Create", "Initialize", "Start", "Stop", "Uninitialize", "Delete"},
         {"TryStart -> Unknown Exception", "TryStop -> Exception: boom"}},
        {false, {{"Stop", Outcome::fail}}, {"Stop", "Uninitialize", "Delete"}, {}},
        {false, {{"Uninitialize", Outcome::throw_standard}}, {"Stop", "Uninitialize", "Delete"}, {"TryUninitialize -> Exception: boom"}},
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

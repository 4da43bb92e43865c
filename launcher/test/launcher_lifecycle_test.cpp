#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dlt_activation/dlt_flags.hpp"
#include "launcher/launcher_flags.hpp"
#include "launcher/launcher_lifecycle.hpp"
#include "launcher/signal_handler.hpp"
#include "launcher/test/fake_strategy.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

namespace {

using testing::_;
using testing::HasSubstr;
using testing::NiceMock;
using testing::Not;
using testing::Return;
using testing::StrEq;

class Fake_observer final : public IDLTActivationFlagObserver {
public:
    void setProxy(const std::shared_ptr<Proxy>&) override {}
    std::shared_ptr<Proxy> getProxy() override { return nullptr; }
    void setFindServiceHandle(const std::shared_ptr<FindServiceHandle>&) override {}
    std::shared_ptr<FindServiceHandle> getFindServiceHandle() override { return nullptr; }
    void findServiceCallback() override {}
    void startFindService() override { ++searches_started; }
    void StopConnectAsynchronously() override { ++searches_stopped; }
    void findServiceStart(const Handles&) override {}

    int searches_started{0};
    int searches_stopped{0};
};

class Fake_dtc_service final : public DTCService {
public:
    bool Startup() override { return startup_result; }
    bool Shutdown() override { return true; }
    bool SetDTCState(std::uint8_t, bool) override { return true; }
    bool GetDTCState(std::uint8_t& state) override
    {
        state = 0;
        return true;
    }
    bool startup_result{true};
};

// The collaborators are plain function pointers, as in production; they read these.
struct Collaborator_setup {
    Strategy_record record;
    bool no_strategy{false};
    bool prepare_result{true};
    bool start_result{true};
    std::function<void()> on_start;
    std::shared_ptr<DTCService> dtc_service;
    std::string dtc_name;
    int dtc_created{0};
    // Called on every DLT flag poll with the poll's number (from 1) and the kind.
    std::function<void(int, std::uint8_t)> on_poll;
    int polls{0};
    std::vector<std::uint32_t> poll_counters;
};
Collaborator_setup* setup = nullptr;

Launcher_strategy_interface* make_strategy(const Launcher_configuration&)
{
    if (setup->no_strategy) {
        return nullptr;
    }
    auto* strategy = new Fake_strategy(setup->record, setup->prepare_result, setup->start_result);
    strategy->on_start = setup->on_start;
    return strategy;
}

std::shared_ptr<DTCService> make_dtc_service(const std::string& name, std::function<void()>)
{
    ++setup->dtc_created;
    setup->dtc_name = name;
    return setup->dtc_service;
}

void poll_dlt_flag(std::uint8_t kind, std::uint32_t& counter, IDLTActivationFlagObserver&)
{
    setup->poll_counters.push_back(counter);
    ++counter;
    ++setup->polls;
    if (setup->on_poll) {
        setup->on_poll(setup->polls, kind);
    }
}

// Stands in for the activation flag sources of the DLT launcher.
void switch_dlt_logging(bool on)
{
    dlt_pm_flag.store(on);
    flag_updated.store(true);
}

class LauncherLifecycle : public testing::Test {
public:
    void SetUp() override
    {
        setup = &collaborators;
        ON_CALL(api, get_hostname()).WillByDefault(Return("vm_adaptive"));
        ON_CALL(api, sigaction(_, _, _)).WillByDefault(Return(0));
        ON_CALL(api, sd_notify(_, _)).WillByDefault([this](int, const char*) {
            ++ready_reports;
            return 0;
        });
    }
    void TearDown() override
    {
        setup = nullptr;
        stop_flag.store(false);
        termination_flag.store(false);
        child_stop_flag.store(false);
    }

    int run(std::vector<std::string> arguments)
    {
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        Launcher_lifecycle lifecycle(api, observer, {&make_strategy, &make_dtc_service, &poll_dlt_flag});
        testing::internal::CaptureStderr();
        const int status = lifecycle.run(static_cast<int>(arguments.size()), argv.data());
        output = testing::internal::GetCapturedStderr();
        return status;
    }

    static std::size_t count(const std::string& text, const std::string& part)
    {
        std::size_t found = 0;
        for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
            ++found;
        }
        return found;
    }

    NiceMock<Mock_system_call_api> api;
    Fake_observer observer;
    Collaborator_setup collaborators;
    int ready_reports{0};
    std::string output;
};

TEST_F(LauncherLifecycle, ChildDeathEndsComLauncherWithStatusZero)
{
    collaborators.on_poll = [](int poll, std::uint8_t) {
        if (poll == 2) {
            signal_handler(SIGCHLD);
        }
    };
    EXPECT_EQ(run({"strata-launcher", "0"}), 0);
    EXPECT_EQ(ready_reports, 1);
    EXPECT_EQ(collaborators.record.created, 1);
    EXPECT_EQ(collaborators.record.stopped, 1);
    EXPECT_EQ(collaborators.record.deleted, 1);
    EXPECT_EQ(collaborators.polls, 2);
    EXPECT_EQ(collaborators.poll_counters.front(), 50U);
    // The whole pass, as the console shows it.
    EXPECT_EQ(output,
              "Launcher: main_launcher start : flag_updated=false \n"
              "COM_LAUNCHER Launcher: Restart Launcher... noHandler  noLauncher  noStrategy \n"
              "Launcher: main_launcher while start : flag_updated=false \n"
              "COM_LAUNCHER Launcher: Starting Launcher... EXIT_SUCCESS \n"
              "COM_LAUNCHER Launcher: Running...\n"
              "Launcher: app= NoStop Update needed = NoUpdate Termination = NoTermination\n"
              "Launcher: Received SIGNAL17\n"
              "Launcher: launcher_main_loop end : flag_updated=false \n"
              "COM_LAUNCHER Launcher: Shutting down...\n"
              "COM_LAUNCHER  Launcher: Shutting down... STOP\n"
              "COM_LAUNCHER Launcher: Terminating...\n");
    EXPECT_EQ(collaborators.dtc_created, 0);
}

TEST_F(LauncherLifecycle, FailuresEndTheRunWithStatusOneAndTheirLines)
{
    struct Case {
        const char* kind;
        std::function<void(LauncherLifecycle&)> arrange;
        const char* expected;
        int ready_reports;
        int created;
        int stopped;
    };
    const std::vector<Case> cases{
        {"abc", [](LauncherLifecycle&) {},
         "Launcher: main_launcher start : flag_updated=false \nUsage: Strata Launcher [daemon]\n"
         "0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\nNo valid process type to initialize dlt. \n"
         " Launcher: Shutting down... TERMINATION\nLauncher: Terminating...\n", 0, 0, 0},
        {"0", [](LauncherLifecycle& t) { ON_CALL(t.api, get_hostname()).WillByDefault(Return("vm_java.local")); },
         "Launcher configuration: Unknown partition. hostname = vm_java.local\n"
         "COM_LAUNCHER Launcher: Configuration failed. Terminating\n", 0, 0, 0},
        {"2", [](LauncherLifecycle& t) { ON_CALL(t.api, sigaction(SIGTERM, _, _)).WillByDefault(Return(-1)); },
         "Cannot register to system signals. Terminating Launcher.\nLauncher: Initialization failed. Terminating"
         "PHM_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "PHM_LAUNCHER  Launcher: Shutting down... FAILURE or no Strategy\nPHM_LAUNCHER Launcher: Terminating...\n",
         0, 0, 0},
        {"99", [](LauncherLifecycle& t) { t.collaborators.no_strategy = true; },
         "Launcher: Preparation failed. Terminating\nCOM_BRIDGE_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "COM_BRIDGE_LAUNCHER  Launcher: Shutting down... FAILURE or no Strategy\n", 0, 0, 0},
        {"2", [](LauncherLifecycle& t) { t.collaborators.prepare_result = false; },
         "Launcher: Preparation failed. Terminating\nPHM_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "PHM_LAUNCHER  Launcher: Shutting down... EXIT_FAILURE\n", 0, 1, 0},
        {"0", [](LauncherLifecycle& t) { t.collaborators.start_result = false; },
         "Launcher: Starting failed. Terminating\nCOM_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "COM_LAUNCHER  Launcher: Shutting down... EXIT_FAILURE\n", 1, 1, 1},
        {"1", [](LauncherLifecycle& t) { t.collaborators.dtc_service = nullptr; },
         "DLT-Launcher: start DTC has failed\n", 0, 0, 0},
    };
    for (const Case& c : cases) {
        collaborators = Collaborator_setup{};
        collaborators.dtc_service = std::make_shared<Fake_dtc_service>();
        ready_reports = 0;
        c.arrange(*this);
        EXPECT_EQ(run({"strata-launcher", c.kind}), 1) << c.expected;
        EXPECT_THAT(output, HasSubstr(c.expected));
        EXPECT_EQ(ready_reports, c.ready_reports) << c.expected;
        EXPECT_EQ(collaborators.record.created, c.created) << c.expected;
        EXPECT_EQ(collaborators.record.stopped, c.stopped) << c.expected;
        EXPECT_EQ(collaborators.record.deleted, c.created) << c.expected;
        EXPECT_EQ(collaborators.polls, 0) << c.expected;
        testing::Mock::VerifyAndClearExpectations(&api);
        SetUp();
    }
}

class DltLauncherLifecycle : public LauncherLifecycle {
protected:
    void SetUp() override
    {
        LauncherLifecycle::SetUp();
        collaborators.dtc_service = dtc;
    }
    std::shared_ptr<Fake_dtc_service> dtc = std::make_shared<Fake_dtc_service>();
};

TEST_F(DltLauncherLifecycle, WithoutLoggingReportsReadyAndPollsUntilTerminated)
{
    EXPECT_CALL(api, startup_runtime()).Times(1);
    EXPECT_CALL(api, shutdown_runtime()).Times(1);
    collaborators.on_poll = [](int poll, std::uint8_t kind) {
        EXPECT_EQ(kind, DLT);
        if (poll == 3) {
            signal_handler(SIGTERM);
        }
    };
    EXPECT_EQ(run({"strata-launcher", "1"}), 0);
    EXPECT_EQ(collaborators.record.created, 0);
    EXPECT_EQ(ready_reports, 1);
    EXPECT_EQ(collaborators.dtc_name, "12452");
    EXPECT_EQ(observer.searches_started, 1);
    EXPECT_EQ(observer.searches_stopped, 1);
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_THAT(output, HasSubstr("Launcher: init_dlt_launcher : flag_updated=false \n"
                                  "DLT Launcher waiting for DSA Diagnostic Data Distribution to find\n"
                                  "DLT launcher : Handle : NOT connected to DSA Diagnostic Data Distribution\n"
                                  "DLT launcher : Proxy : NOT connected to DSA Diagnostic Data Distribution\n"
                                  "DLT-Launcher: Created DLT DTC object\n"));
    EXPECT_THAT(output, HasSubstr("DLT_LAUNCHER Launcher: start without DLT LOG...\n"));
    EXPECT_THAT(output, HasSubstr("DTL launcher : Stop COM \nDLT_LAUNCHER Launcher: Terminating...\n"));
    EXPECT_THAT(output, Not(HasSubstr("Unsubscribe")));
    EXPECT_FALSE(get_dtc_service());
}

TEST_F(DltLauncherLifecycle, DtcThatDoesNotStartIsNoFailure)
{
    dtc->startup_result = false;
    collaborators.on_poll = [](int, std::uint8_t) { signal_handler(SIGINT); };
    EXPECT_EQ(run({"strata-launcher", "1"}), 0);
    EXPECT_THAT(output, HasSubstr("DLT-Launcher: Start DLT DTC object failed\n"));
}

TEST_F(DltLauncherLifecycle, FlagChangesStartAndStopTheDaemonsInNewPasses)
{
    collaborators.on_poll = [](int poll, std::uint8_t) {
        if (poll == 1) {
            switch_dlt_logging(true);
        } else if (poll == 2) {
            switch_dlt_logging(false);
        } else if (poll == 3) {
            signal_handler(SIGTERM);
        }
    };
    EXPECT_EQ(run({"strata-launcher", "1"}), 0);
    EXPECT_EQ(collaborators.record.created, 1);
    EXPECT_EQ(collaborators.record.stopped, 1);
    EXPECT_EQ(collaborators.record.deleted, 1);
    EXPECT_EQ(ready_reports, 3);
    EXPECT_EQ(count(output, "Launcher: Restart Launcher..."), 3U);
    EXPECT_EQ(count(output, "start without DLT LOG..."), 2U);
}

TEST_F(DltLauncherLifecycle, FailedPrepareIsRetriedLikeAFailedStart)
{
    collaborators.prepare_result = false;
    collaborators.on_poll = [](int poll, std::uint8_t) {
        if (poll == 1) {
            switch_dlt_logging(true);
        } else if (poll == 6) {
            signal_handler(SIGTERM);
        }
    };
    EXPECT_EQ(run({"strata-launcher", "1"}), 0);
    EXPECT_EQ(count(output, "Launcher: Preparation failed. Terminating\n"), 4U);
    EXPECT_EQ(count(output, "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry soon ...\n"), 3U);
    EXPECT_EQ(count(output, "DLT Launcher start procs had failed, but retry if dlt flag changes ...\n"), 1U);
    EXPECT_EQ(collaborators.record.created, 4);
    EXPECT_EQ(collaborators.record.started, 0);
    EXPECT_EQ(collaborators.record.deleted, 4);
}

TEST_F(DltLauncherLifecycle, DyingDaemonRestartsDaemonsWithoutLimit)
{
    collaborators.on_poll = [](int poll, std::uint8_t) {
        if (poll == 1) {
            switch_dlt_logging(true);
        } else if (poll < 5) {
            signal_handler(SIGCHLD);
        } else {
            signal_handler(SIGTERM);
        }
    };
    EXPECT_EQ(run({"strata-launcher", "1"}), 0);
    EXPECT_EQ(collaborators.record.created, 4);
    EXPECT_EQ(collaborators.record.stopped, 4);
    EXPECT_EQ(collaborators.record.deleted, 4);
    EXPECT_EQ(count(output, "DLT_LAUNCHER Launcher: Continue...\n"), 3U);
    EXPECT_EQ(ready_reports, 5);
}

TEST_F(DltLauncherLifecycle, FailedStartsRetryThreeTimesThenWaitForFlagChange)
{
    collaborators.start_result = false;
    // The children of a failed start die, as they would.
    collaborators.on_start = [] { signal_handler(SIGCHLD); };
    collaborators.on_poll = [](int poll, std::uint8_t) {
        // The quick retries end their passes before any poll.
        if (poll == 1 || poll == 6) {
            switch_dlt_logging(true);
        } else if (poll == 11) {
            signal_handler(SIGTERM);
        }
    };
    EXPECT_EQ(run({"strata-launcher", "1"}), 0);
    EXPECT_EQ(count(output, "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry soon ...\n"), 6U);
    EXPECT_EQ(count(output, "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry if dlt flag changes ...\n"),
              2U);
    EXPECT_EQ(count(output, "DLT_LAUNCHER Launcher: Ignore child stop signal ...\n"), 2U);
    EXPECT_EQ(collaborators.record.created, 8);
    EXPECT_EQ(collaborators.record.stopped, 8);
    EXPECT_EQ(collaborators.record.deleted, 8);
    EXPECT_THAT(output, Not(HasSubstr("Launcher: Shutting down... EXIT_FAILURE")));
}

}  // namespace

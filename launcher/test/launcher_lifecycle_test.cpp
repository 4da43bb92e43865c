// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dlt_activation/dlt_flags.hpp"
#include "launcher/launcher_flags.hpp"
#include "launcher/launcher_lifecycle.hpp"
#include "launcher/signal_handler.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

namespace {

using testing::_;
using testing::HasSubstr;
using testing::Not;
using testing::Return;

// Stands in for the activation flag sources of the DLT launcher.
void switch_dlt_logging(bool on)
{
    dlt_pm_flag.store(on);
    flag_updated.store(true);
}

class Fake_observer final : public IDLTActivationFlagObserver {
public:
    void setProxy(const std::shared_ptr<Proxy>&) override {}
    std::shared_ptr<Proxy> getProxy() override { return nullptr; }
    void setFindServiceHandle(const std::shared_ptr<FindServiceHandle>&) override {}
    std::shared_ptr<FindServiceHandle> getFindServiceHandle() override { return nullptr; }
    void findServiceCallback() override {}
    // The flag may already be known when the search starts.
    void startFindService() override
    {
        if (logging_at_start) {
            switch_dlt_logging(true);
        }
    }
    void StopConnectAsynchronously() override { ++searches_stopped; }
    void findServiceStart(const Handles&) override {}
    bool logging_at_start{false};
    int searches_stopped{0};
};

class Fake_dtc_service final : public DTCService {
public:
    bool Startup() override { return startup_result; }
    bool Shutdown() override { return true; }
    bool SetDTCState(std::uint8_t, bool) override { return true; }
    bool GetDTCState(std::uint8_t&) override { return true; }
    bool startup_result{true};
};

// The collaborators are plain function pointers, as in production; they read this.
struct Collaborator_setup {
    bool no_strategy{false};
    bool prepare_result{true};
    bool start_result{true};
    std::vector<bool> start_results;  // per start, from the first; then start_result
    bool children_die_on_start{false};
    int created{0}, started{0}, stopped{0}, deleted{0}, ready{0}, polls{0};
    std::shared_ptr<DTCService> dtc_service = std::make_shared<Fake_dtc_service>();
    std::string dtc_name;
    std::function<void(int)> on_poll;  // with the poll's number, from 1
    std::vector<int> counts() const { return {created, started, stopped, deleted, ready}; }
};
Collaborator_setup* setup = nullptr;

class Fake_strategy final : public Launcher_strategy_interface {
public:
    Fake_strategy() { ++setup->created; }
    ~Fake_strategy() override { ++setup->deleted; }
    bool prepare(System_call_api_interface*, Launcher_interface*) override { return setup->prepare_result; }
    bool start() override
    {
        ++setup->started;
        if (setup->children_die_on_start) {
            signal_handler(SIGCHLD);
        }
        const auto at = static_cast<std::size_t>(setup->started - 1);
        return at < setup->start_results.size() ? setup->start_results[at] : setup->start_result;
    }
    void stop() override { ++setup->stopped; }
    Daemon_handler_interface* get_daemon_handler() override { return nullptr; }
};

Launcher_strategy_interface* make_strategy(const Launcher_configuration&)
{
    return setup->no_strategy ? nullptr : new Fake_strategy;
}

std::shared_ptr<DTCService> make_dtc_service(const std::string& name, std::function<void()>)
{
    setup->dtc_name = name;
    return setup->dtc_service;
}

void poll_dlt_flag(std::uint8_t kind, std::uint32_t& counter, IDLTActivationFlagObserver&)
{
    // The first poll of a run phase reads the marker file at once.
    EXPECT_EQ(counter, 50U) << kind;
    setup->on_poll(++setup->polls);
}

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1), ++found) {
    }
    return found;
}

// The flags are left as the previous run left them: a run starts from its own.
class LauncherLifecycle : public testing::Test {
public:
    void SetUp() override
    {
        setup = &collaborators;
        ON_CALL(api, get_hostname()).WillByDefault(Return("vm_adaptive"));
        ON_CALL(api, sigaction(_, _, _)).WillByDefault(Return(0));
        ON_CALL(api, sd_notify(_, _)).WillByDefault([](int, const char*) { return ++setup->ready, 0; });
    }
    void TearDown() override { setup = nullptr; }
    void sigaction_returns(int signal, int result)
    {
        ON_CALL(api, sigaction(signal, _, _)).WillByDefault(Return(result));
    }

    // The words of the argument list after the program name, separated by spaces.
    int run(std::string words)
    {
        std::string program = "strata-launcher";
        std::vector<char*> argv{program.data()};
        for (char* word = std::strtok(words.data(), " "); word != nullptr; word = std::strtok(nullptr, " ")) {
            argv.push_back(word);
        }
        Launcher_lifecycle lifecycle(api, observer, {&make_strategy, &make_dtc_service, &poll_dlt_flag});
        testing::internal::CaptureStderr();
        const int status = lifecycle.run(static_cast<int>(argv.size()), argv.data());
        output = testing::internal::GetCapturedStderr();
        return status;
    }

    testing::NiceMock<Mock_system_call_api> api;
    Fake_observer observer;
    Collaborator_setup collaborators;
    std::string output;
};

TEST_F(LauncherLifecycle, ChildDeathEndsComLauncherWithStatusZero)
{
    sigaction_returns(SIGTERM, 1);  // only -1 is a failure for SIGTERM
    collaborators.on_poll = [](int poll) { signal_handler(poll == 2 ? SIGCHLD : SIGUSR1); };
    EXPECT_EQ(run("0"), 0);
    EXPECT_EQ(collaborators.counts(), (std::vector<int>{1, 1, 1, 1, 1}));
    EXPECT_EQ(output,
              "Launcher: main_launcher start : flag_updated=false \n"
              "COM_LAUNCHER Launcher: Restart Launcher... noHandler  noLauncher  noStrategy \n"
              "Launcher: main_launcher while start : flag_updated=false \n"
              "COM_LAUNCHER Launcher: Starting Launcher... EXIT_SUCCESS \n"
              "COM_LAUNCHER Launcher: Running...\n"
              "Launcher: app= NoStop Update needed = NoUpdate Termination = NoTermination\n"
              "Launcher: Received SIGNAL10\nLauncher: Received SIGNAL17\n"
              "Launcher: launcher_main_loop end : flag_updated=false \n"
              "COM_LAUNCHER Launcher: Shutting down...\n"
              "COM_LAUNCHER  Launcher: Shutting down... STOP\n"
              "COM_LAUNCHER Launcher: Terminating...\n");
}

TEST_F(LauncherLifecycle, FailuresEndTheRunWithStatusOneAndTheirLines)
{
    struct Case {
        const char* kind;
        const char* hostname;
        std::function<void(LauncherLifecycle&)> arrange;
        const char* expected;
        int ready, created, stopped;
    };
    const auto as_is = [](LauncherLifecycle&) {};
    const char* const usage = "0: COM, 1: DLT, 2: PHM, 3: UDPNM, 99: COM BRIDGE\nNo valid";
    // An argument that is no kind: unreadable, next to a kind, missing, or one too many.
    const std::vector<Case> cases{
        {"abc", "vm_adaptive", as_is, "initialize dlt. \n Launcher: Shutting down... TERMINATION\n", 0, 0, 0},
        {"4", "vm_adaptive", as_is, usage, 0, 0, 0},
        {"98", "vm_adaptive", as_is, usage, 0, 0, 0},
        {"100", "vm_adaptive", as_is, usage, 0, 0, 0},
        {"", "vm_adaptive", as_is, usage, 0, 0, 0},
        {"0 1", "vm_adaptive", as_is, usage, 0, 0, 0},
        {"0", "vm_java.local", as_is, "vm_java.local\nCOM_LAUNCHER Launcher: Configuration failed. Terminating\n", 0, 0,
         0},
        {"3", "", as_is, "Cannot detect hostname of the partition.\nUDPMN_LAUNCHER Launcher: Configuration failed", 0,
         0, 0},
        // Registration fails with -1 for SIGTERM, anything but 0 for SIGINT and SIGCHLD.
        {"2", "vm_java", [](LauncherLifecycle& t) { t.sigaction_returns(SIGTERM, -1); },
         "Cannot register to system signals. Terminating Launcher.\nLauncher: Initialization failed. Terminating"
         "PHM_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "PHM_LAUNCHER  Launcher: Shutting down... FAILURE or no Strategy\nPHM_LAUNCHER Launcher: Terminating...\n",
         0, 0, 0},
        {"3", "qemu-arm64", [](LauncherLifecycle& t) { t.sigaction_returns(SIGINT, 1); },
         "Initialization failed. TerminatingUDPMN_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n", 0, 0, 0},
        // The DLT launcher without logging registers for signals on its own.
        {"1", "vm_adaptive", [](LauncherLifecycle& t) { t.sigaction_returns(SIGCHLD, -1); },
         "DLT_LAUNCHER  Register to signal callback failed ...\nDLT_LAUNCHER  Launcher: Shutting down... EXIT_FAILURE\n"
         "DTL launcher : Shutdown DTC\n",
         1, 0, 0},
        {"99", "vm_housekeeping", [](LauncherLifecycle& t) { t.collaborators.no_strategy = true; },
         "Launcher: Preparation failed. Terminating\nCOM_BRIDGE_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "COM_BRIDGE_LAUNCHER  Launcher: Shutting down... FAILURE or no Strategy\n",
         0, 0, 0},
        {"2", "vm_adaptive", [](LauncherLifecycle& t) { t.collaborators.prepare_result = false; },
         "Launcher: Preparation failed. Terminating\nPHM_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "PHM_LAUNCHER  Launcher: Shutting down... EXIT_FAILURE\nPHM_LAUNCHER Launcher: Terminating...\n",
         0, 1, 0},
        {"0", "vm_adaptive", [](LauncherLifecycle& t) { t.collaborators.start_result = false; },
         "Launcher: Starting failed. Terminating\nCOM_LAUNCHER Launcher: Starting Launcher... EXIT_FAILURE \n"
         "COM_LAUNCHER  Launcher: Shutting down... EXIT_FAILURE\n",
         1, 1, 1},
        {"1", "vm_adaptive", [](LauncherLifecycle& t) { t.collaborators.dtc_service = nullptr; },
         "DLT-Launcher: start DTC has failed\n", 0, 0, 0},
    };
    for (const Case& c : cases) {
        collaborators = Collaborator_setup{};
        ON_CALL(api, get_hostname()).WillByDefault(Return(c.hostname));
        c.arrange(*this);
        EXPECT_EQ(run(c.kind), 1) << c.expected;
        EXPECT_THAT(output, HasSubstr(c.expected));
        EXPECT_EQ(collaborators.counts(), (std::vector<int>{c.created, c.stopped, c.stopped, c.created, c.ready}))
            << c.expected;
        EXPECT_EQ(collaborators.polls, 0) << c.expected;
        testing::Mock::VerifyAndClearExpectations(&api);
        SetUp();
    }
}

// Starts after a COM run that a child's death ended, as a second run in one process would.
TEST_F(LauncherLifecycle, DltFlagChangesAndChildDeathsStartAndStopTheDaemonsInNewPasses)
{
    collaborators.on_poll = [](int) { signal_handler(SIGCHLD); };
    EXPECT_EQ(run("0"), 0);
    collaborators = Collaborator_setup{};
    EXPECT_CALL(api, startup_runtime()).Times(1);
    EXPECT_CALL(api, shutdown_runtime()).Times(1);
    static_cast<Fake_dtc_service&>(*collaborators.dtc_service).startup_result = false;
    observer.logging_at_start = true;
    collaborators.on_poll = [](int poll) {
        poll <= 2 ? switch_dlt_logging(poll == 2) : signal_handler(poll == 3 ? SIGCHLD : SIGTERM);
    };
    EXPECT_EQ(run("1"), 0);
    EXPECT_EQ(collaborators.dtc_name, "12452");
    EXPECT_EQ(collaborators.counts(), (std::vector<int>{3, 3, 3, 3, 4}));
    EXPECT_EQ(observer.searches_stopped, 1);
    EXPECT_THAT(output, HasSubstr("DLT launcher : Handle : NOT connected to DSA Diagnostic Data Distribution\n"
                                  "DLT launcher : Proxy : NOT connected to DSA Diagnostic Data Distribution\n"
                                  "DLT-Launcher: Created DLT DTC object\nDLT-Launcher: Start DLT DTC object failed\n"));
    EXPECT_EQ(count(output, "DLT_LAUNCHER Launcher: start without DLT LOG...\n"), 1U);
    EXPECT_EQ(count(output, "DLT_LAUNCHER Launcher: Continue...\n"), 1U);
    // Without a proxy there is nothing to unsubscribe from.
    EXPECT_THAT(output, HasSubstr("down... STOP\nDTL launcher : Shutdown DTC\nDTL launcher : Stop COM \n"));
    EXPECT_FALSE(get_dtc_service());
}

// Three quick retries, then a wait for the next flag change, after which the count starts over.
TEST_F(LauncherLifecycle, FailedDltStartsRetryThreeTimesThenWaitForAFlagChange)
{
    for (const bool prepare_fails : {true, false}) {
        collaborators = Collaborator_setup{};
        collaborators.prepare_result = !prepare_fails;
        collaborators.start_result = false;
        collaborators.children_die_on_start = true;
        collaborators.on_poll = [](int poll) { poll < 3 ? switch_dlt_logging(true) : signal_handler(SIGTERM); };
        EXPECT_EQ(run("1"), 0);
        EXPECT_EQ(count(output, "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry soon ...\n"), 6U);
        EXPECT_EQ(count(output, "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry if dlt flag"), 2U);
        EXPECT_EQ(count(output, "Launcher: Preparation failed. Terminating\n"), prepare_fails ? 8U : 0U);
        EXPECT_EQ(count(output, "DLT_LAUNCHER Launcher: Ignore child stop signal ...\n"), prepare_fails ? 0U : 2U);
        const int started = prepare_fails ? 0 : 8;
        EXPECT_EQ(collaborators.counts(), (std::vector<int>{8, started, started, 8, 1 + started}));
        EXPECT_THAT(output, Not(HasSubstr("Shutting down... EXIT_FAILURE")));
    }
}

// The quick retries count consecutive failures: a start that worked, whose daemon then died,
// gives the next failures their three quick retries again.
TEST_F(LauncherLifecycle, ASuccessfulDltStartGivesTheNextFailuresThreeQuickRetries)
{
    observer.logging_at_start = true;
    collaborators.start_results = {false, true, false, false, false, false};
    collaborators.children_die_on_start = true;
    collaborators.on_poll = [](int) { signal_handler(SIGTERM); };
    EXPECT_EQ(run("1"), 0);
    EXPECT_EQ(collaborators.started, 6);
    EXPECT_EQ(count(output, "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry soon ...\n"), 4U);
    EXPECT_EQ(count(output, "DLT_LAUNCHER  DLT Launcher start procs had failed, but retry if dlt flag"), 1U);
    EXPECT_EQ(count(output, "DLT_LAUNCHER Launcher: Continue...\n"), 5U);
}

}  // namespace

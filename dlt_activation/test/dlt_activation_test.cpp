// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/launcher_types.hpp"
#include "dlt_activation/dlt_activation_flag_observer.hpp"
#include "dlt_activation/dlt_flags.hpp"
#include "dtc/test/loopback_runtime.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_skeleton.hpp"

// Declared only here: the launcher itself always uses the fixed path of the target.
void set_dlt_flag_file_path_for_testing(const std::string& path);
std::chrono::milliseconds set_dlt_answer_limit_for_testing(std::chrono::milliseconds limit);

namespace {

namespace ddd = lumo::services::diagnosticdatadistribution;
using Proxy = IDLTActivationFlagObserver::Proxy;

const ::testing::Environment* const runtime = ::testing::AddGlobalTestEnvironment(new LoopbackRuntime);

// Plays the diagnostic data distribution service with the answer a test chooses.
class PlayedDistribution final : public ddd::skeleton::DiagnosticDataDistributionSkeleton {
public:
    PlayedDistribution() : DiagnosticDataDistributionSkeleton(vela::com::runtime::InstanceSpecifier("1")) {}
    std::future<getDiagnosticDataValuesOutput> getDiagnosticDataValues(std::uint32_t arg,
                                                                       const ddd::datatypes::DT_ListOfIds& ids) override
    {
        std::lock_guard<std::mutex> lock(mutex);
        requests.push_back({arg, ids});
        if (failing) {
            throw std::runtime_error("played failure");
        }
        if (silent) {
            return held.get_future();
        }
        std::promise<getDiagnosticDataValuesOutput> done;
        done.set_value(answer);
        return done.get_future();
    }
    std::future<getDiagnosticDataOutput> getDiagnosticData(std::uint32_t, std::uint32_t) override { return {}; }

    std::mutex mutex;
    getDiagnosticDataValuesOutput answer;
    bool failing{false};
    bool silent{false};
    std::promise<getDiagnosticDataValuesOutput> held;  // the answer of a silent service
    std::vector<std::pair<std::uint32_t, ddd::datatypes::DT_ListOfIds>> requests;
};

class DltActivation : public ::testing::Test {
protected:
    void SetUp() override { set_dlt_flag_file_path_for_testing(marker); }
    void TearDown() override
    {
        (void)::unlink(marker.c_str());
        dlt_pm_flag.store(true);
        flag_updated.store(false);
    }
    void expect_flags(bool flag, bool updated, const std::string& what)
    {
        EXPECT_EQ(dlt_pm_flag.load(), flag) << what;
        EXPECT_EQ(flag_updated.load(), updated) << what;
    }
    const std::string marker = testing::TempDir() + "DLTActivation." + std::to_string(::getpid());
    DLTActivationFlagObserver observer;
};

// Without a proxy nothing is asked or unsubscribed. Then a proxy nothing subscribes
// through, so that no notification starts a request of its own.
TEST_F(DltActivation, RequestDecodesTheFirstByteAndKeepsTheFlagOnEveryFailure)
{
    dlt_pm_flag.store(false);
    testing::internal::CaptureStderr();
    updateDltFlagFromService(observer);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Get getDiagnosticDataValues start ProxyNotAvailable\nLauncher: request from DSA :  DLT-flag = 0\n");
    EXPECT_FALSE(unsubscribe_data_values_hash(observer));
    expect_flags(false, false, "no proxy");

    PlayedDistribution service;
    service.OfferService();
    std::promise<Proxy::HandleType> found;
    std::once_flag once;
    const auto search = Proxy::StartFindService(
        [&](vela::com::runtime::ServiceHandleContainer<Proxy::HandleType> handles) {
            if (!handles.empty()) {
                std::call_once(once, [&] { found.set_value(handles.front()); });
            }
        },
        vela::com::runtime::InstanceSpecifier("1"));
    auto handle = found.get_future();
    ASSERT_EQ(handle.wait_for(std::chrono::seconds(5)), std::future_status::ready);
    observer.setProxy(std::make_shared<Proxy>(handle.get()));
    Proxy::StopFindService(search);

    const std::string taken = "Launcher: request_dlt_flag : flag_updated=true \n";
    struct Case {
        std::vector<std::uint8_t> values;
        std::uint32_t return_code;
        bool fail, before;
        std::string err;
        bool after;
    };
    for (const Case& c :
         {Case{{1, 0, 0}, 0, false, false, taken, true}, Case{{2}, 0, false, true, taken, false},
          Case{{0}, 0, false, false, taken, false}, Case{{1}, 3, false, false, "", false},
          Case{{}, 0, false, true, "DLT Launcher: DDD DSA answer without data values; DLT flag unchanged\n", true},
          Case{{1}, 0, true, false, "DLT Launcher: DDD DSA connection lost Transport exception", false}}) {
        {
            std::lock_guard<std::mutex> lock(service.mutex);
            service.answer.dataValues = c.values;
            service.answer.returnCode = c.return_code;
            service.failing = c.fail;
        }
        dlt_pm_flag.store(c.before);
        flag_updated.store(false);
        testing::internal::CaptureStderr();
        request_dlt_flag(observer);
        const std::string err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(err.substr(0, c.err.size()), c.err) << c.before;
        expect_flags(c.after, c.err == taken, c.err);
    }

    // A service that never answers holds the request for the answer limit only.
    const std::chrono::milliseconds limit = set_dlt_answer_limit_for_testing(std::chrono::milliseconds(300));
    EXPECT_EQ(limit, std::chrono::milliseconds(5000));
    {
        std::lock_guard<std::mutex> lock(service.mutex);
        service.failing = false;
        service.silent = true;
    }
    dlt_pm_flag.store(true);
    flag_updated.store(false);
    testing::internal::CaptureStderr();
    const auto asked = std::chrono::steady_clock::now();
    auto request = std::async(std::launch::async, [this] { request_dlt_flag(observer); });
    const bool returned = request.wait_for(std::chrono::seconds(4)) == std::future_status::ready;
    const auto waited = std::chrono::steady_clock::now() - asked;
    service.held.set_value({});
    request.wait();
    ASSERT_TRUE(returned) << "the request waits for an answer that does not come";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "DLT Launcher: DDD DSA connection lost getDiagnosticDataValues: no answer within 300 ms\n");
    EXPECT_GE(waited, std::chrono::milliseconds(300));
    expect_flags(true, false, "silent service");
    (void)set_dlt_answer_limit_for_testing(limit);

    std::lock_guard<std::mutex> lock(service.mutex);
    ASSERT_EQ(service.requests.size(), 7U);
    EXPECT_EQ(service.requests[0].first, 0U);
    EXPECT_EQ(service.requests[0].second, ddd::datatypes::DT_ListOfIds{0x50D});
}

// The marker is looked at on every fifty-first poll, and only switches logging on while no
// found service can answer instead.
TEST_F(DltActivation, SwitchesLoggingOnOnlyWhenDueAndNoServiceCanAnswer)
{
    struct Case {
        const char* name;
        bool marker, searching, found, already_on;
        std::uint8_t kind;
        std::uint32_t counter, counter_after;
        bool switched;
    };
    std::ofstream(marker) << "any content";
    for (const Case& c : {Case{"no search", true, false, false, false, DLT, 50, 0, true},
                          Case{"search without result", true, true, false, false, DLT, 50, 0, true},
                          Case{"proxy left without search", true, false, true, false, DLT, 50, 0, true},
                          Case{"not yet due", true, false, false, false, DLT, 49, 50, false},
                          Case{"service found", true, true, true, false, DLT, 50, 0, false},
                          Case{"already on", true, false, false, true, DLT, 50, 0, false},
                          Case{"other kind", true, false, false, false, PHM, 50, 50, false},
                          Case{"no marker", false, false, false, false, DLT, 50, 0, false}}) {
        if (!c.marker) {
            (void)::unlink(marker.c_str());
        }
        observer.setFindServiceHandle(c.searching ? std::make_shared<vela::com::runtime::FindServiceHandle>(7)
                                                  : nullptr);
        observer.setProxy(c.found ? std::make_shared<Proxy>(Proxy::HandleType{}) : nullptr);
        dlt_pm_flag.store(c.already_on);
        flag_updated.store(false);
        std::uint32_t counter = c.counter;
        testing::internal::CaptureStderr();
        check_dlt_flag_file(c.kind, counter, observer);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  c.switched ? "Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n"
                               "Launcher: switch DLT logging by file ; DLT-flag = 1\n"
                             : "")
            << c.name;
        expect_flags(c.switched || c.already_on, c.switched, c.name);
        EXPECT_EQ(counter, c.counter_after) << c.name;
    }
}

TEST_F(DltActivation, AFifoInTheMarkersPlaceDoesNotHoldTheMainLoop)
{
    ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
    dlt_pm_flag.store(false);
    std::uint32_t counter = 50;
    auto checked = std::async(std::launch::async, [&] { check_dlt_flag_file(DLT, counter, observer); });
    const bool returned = checked.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
    if (!returned) {
        std::ofstream(marker) << "x";  // lets the blocked open return, so the check can end
    }
    checked.get();
    EXPECT_TRUE(returned) << "opening the marker waited for a writer";
    EXPECT_TRUE(dlt_pm_flag.load()) << "an openable marker switches logging on, whatever it is";
}

// Find results arrive on a middleware thread and replace the proxy while the main loop
// reads it (marker-file poll, unsubscribe at termination). Only the race detector of the
// sanitizer build can tell whether every read meets the writes under the observer's
// lock; the main side here takes no other lock, so that nothing else orders the two.
TEST_F(DltActivation, FindResultsAndTheMainLoopsReadsMeetUnderTheLock)
{
    testing::internal::CaptureStderr();
    std::atomic<bool> done{false};
    std::thread middleware([this, &done] {
        for (int round = 0; round < 200; ++round) {
            observer.findServiceStart({});
        }
        done.store(true);
    });
    do {
        EXPECT_FALSE(unsubscribe_data_values_hash(observer));
    } while (!done.load());
    middleware.join();
    (void)testing::internal::GetCapturedStderr();
}

}  // namespace

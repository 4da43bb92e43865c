#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "common/launcher_types.hpp"
#include "dlt_activation/dlt_flags.hpp"
#include "dlt_activation/test/counting_dtc_service.hpp"
#include "dlt_activation/test/dlt_flag_file_for_testing.hpp"
#include "dlt_activation/test/fake_observer.hpp"
#include "dtc/dtc_service.hpp"

namespace {

class DltFlagFile : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/dlt_flag_file_test.XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        directory = pattern;
        marker = directory + "/DLTActivation";
        set_dlt_flag_file_path_for_testing(marker);
        dlt_pm_flag.store(false);
        flag_updated.store(false);
        set_dtc_service(dtc);
    }
    void TearDown() override
    {
        set_dtc_service(nullptr);
        (void)::unlink(marker.c_str());
        (void)::rmdir(directory.c_str());
        dlt_pm_flag.store(true);
        flag_updated.store(false);
    }
    void create_marker() { std::ofstream(marker) << "any content"; }
    void check()
    {
        testing::internal::CaptureStderr();
        check_dlt_flag_file(DLT, counter, observer);
        err = testing::internal::GetCapturedStderr();
    }
    static std::shared_ptr<FakeObserver::FindServiceHandle> running_search()
    {
        return std::make_shared<FakeObserver::FindServiceHandle>(7);
    }
    static std::shared_ptr<FakeObserver::Proxy> found_service()
    {
        return std::make_shared<FakeObserver::Proxy>(vela::com::runtime::HandleType{});
    }

    std::string directory;
    std::string marker;
    std::uint32_t counter{50};
    FakeObserver observer;
    std::shared_ptr<CountingDtcService> dtc = std::make_shared<CountingDtcService>();
    std::string err;
};

TEST_F(DltFlagFile, IsLookedAtOnlyOnEveryFiftyFirstPoll)
{
    create_marker();
    counter = 49;
    check();
    EXPECT_EQ(counter, 50U);
    EXPECT_FALSE(dlt_pm_flag.load());
    check();
    EXPECT_EQ(counter, 0U);
    EXPECT_TRUE(dlt_pm_flag.load());
}

// The marker only switches logging on, and only while no found service can answer instead.
TEST_F(DltFlagFile, SwitchesLoggingOnOnlyWhenNoServiceCanAnswer)
{
    struct Case {
        const char* name;
        bool marker;
        bool searching;
        bool found;
        bool already_on;
        std::uint8_t kind;
        bool switched;
    };
    for (const Case& c : {Case{"no search", true, false, false, false, DLT, true},
                          Case{"search without result", true, true, false, false, DLT, true},
                          Case{"service found", true, true, true, false, DLT, false},
                          Case{"already on", true, false, false, true, DLT, false},
                          Case{"no marker", false, false, false, false, DLT, false},
                          Case{"other kind", true, false, false, false, PHM, false}}) {
        SetUp();
        if (c.marker) {
            create_marker();
        }
        observer.handle = c.searching ? running_search() : nullptr;
        observer.proxy = c.found ? found_service() : nullptr;
        dlt_pm_flag.store(c.already_on);
        dtc = std::make_shared<CountingDtcService>();
        set_dtc_service(dtc);
        testing::internal::CaptureStderr();
        check_dlt_flag_file(c.kind, counter, observer);
        err = testing::internal::GetCapturedStderr();
        EXPECT_EQ(dlt_pm_flag.load(), c.switched || c.already_on) << c.name;
        EXPECT_EQ(flag_updated.load(), c.switched) << c.name;
        EXPECT_EQ(dtc->states(), c.switched ? std::vector<std::uint8_t>{1} : std::vector<std::uint8_t>{}) << c.name;
        EXPECT_EQ(err, c.switched ? "Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n"
                                    "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n"
                                    "Launcher: switch DLT logging by file ; DLT-flag = 1\n"
                                  : "")
            << c.name;
        EXPECT_EQ(counter, c.kind == DLT ? 0U : 50U) << c.name;
        TearDown();
        counter = 50;
    }
}

TEST_F(DltFlagFile, AFifoInTheMarkersPlaceDoesNotHoldTheMainLoop)
{
    ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
    std::promise<void> done;
    std::future<void> checked = done.get_future();
    std::thread poll([&] {
        check_dlt_flag_file(DLT, counter, observer);
        done.set_value();
    });
    const bool returned = checked.wait_for(std::chrono::seconds(2)) == std::future_status::ready;
    if (!returned) {
        // A writer lets the blocked open return, so the thread can be joined.
        const int writer = ::open(marker.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        poll.join();
        if (writer >= 0) {
            (void)::close(writer);
        }
    } else {
        poll.join();
    }
    EXPECT_TRUE(returned) << "opening the marker waited for a writer";
    EXPECT_TRUE(dlt_pm_flag.load()) << "an openable marker switches logging on, whatever it is";
}

}  // namespace

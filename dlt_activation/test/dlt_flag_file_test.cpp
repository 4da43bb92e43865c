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

TEST_F(DltFlagFile, SwitchesLoggingOnWithoutAnySearch)
{
    create_marker();
    check();
    EXPECT_TRUE(dlt_pm_flag.load());
    EXPECT_TRUE(flag_updated.load());
    EXPECT_EQ(dtc->states(), std::vector<std::uint8_t>{1});
    EXPECT_EQ(err,
              "Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true\n"
              "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n"
              "Launcher: switch DLT logging by file ; DLT-flag = 1\n");
}

TEST_F(DltFlagFile, SwitchesLoggingOnWhileTheSearchHasNotFoundTheService)
{
    create_marker();
    observer.handle = running_search();
    check();
    EXPECT_TRUE(dlt_pm_flag.load());
}

TEST_F(DltFlagFile, IsIgnoredWhileTheServiceCanAnswer)
{
    create_marker();
    observer.handle = running_search();
    observer.proxy = found_service();
    check();
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_FALSE(flag_updated.load());
    EXPECT_TRUE(dtc->states().empty());
    EXPECT_EQ(err, "");
}

TEST_F(DltFlagFile, DoesNothingWhenLoggingIsAlreadyOn)
{
    create_marker();
    dlt_pm_flag.store(true);
    check();
    EXPECT_FALSE(flag_updated.load());
    EXPECT_TRUE(dtc->states().empty());
    EXPECT_EQ(err, "");
}

TEST_F(DltFlagFile, MissingOrUnreadableMarkerChangesNothingSilently)
{
    check();
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_EQ(err, "");

    if (::geteuid() != 0) {  // root reads any file, whatever its mode
        create_marker();
        ASSERT_EQ(::chmod(marker.c_str(), 0), 0);
        counter = 50;
        check();
        EXPECT_FALSE(dlt_pm_flag.load());
        EXPECT_EQ(err, "");
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

TEST_F(DltFlagFile, OtherKindsNeitherCountNorLook)
{
    create_marker();
    for (const std::uint8_t kind : {COM, PHM, UDPNM, COM_BRIDGE}) {
        counter = 50;
        check_dlt_flag_file(kind, counter, observer);
        EXPECT_EQ(counter, 50U);
    }
    EXPECT_FALSE(dlt_pm_flag.load());
}

}  // namespace

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dlt_activation/dlt_activation_flag_observer.hpp"
#include "dlt_activation/dlt_flags.hpp"
#include "dlt_activation/test/counting_dtc_service.hpp"
#include "dlt_activation/test/fake_observer.hpp"
#include "dlt_activation/test/played_distribution.hpp"
#include "dtc/test/loopback_runtime.hpp"

namespace {

using ProxyClass = IDLTActivationFlagObserver::Proxy;
using HandleType = vela::com::runtime::HandleType;

const ::testing::Environment* const runtime = ::testing::AddGlobalTestEnvironment(new LoopbackRuntime);

HandleType find_played_service()
{
    Arrivals<HandleType> found;
    const auto search = ProxyClass::StartFindService(
        [&found](vela::com::runtime::ServiceHandleContainer<HandleType> handles) {
            if (!handles.empty()) {
                found.push(handles.front());
            }
        },
        vela::com::runtime::InstanceSpecifier("1"));
    const bool seen = found.wait_for_count(1);
    ProxyClass::StopFindService(search);
    EXPECT_TRUE(seen) << "the played service was not found";
    return seen ? found.values().front() : HandleType{};
}

// Flags and DTC service as the DLT launcher has them after its initialisation.
class DltFlagState : public ::testing::Test {
protected:
    void SetUp() override
    {
        dlt_pm_flag.store(false);
        flag_updated.store(false);
        set_dtc_service(dtc);
    }
    void TearDown() override
    {
        set_dtc_service(nullptr);
        dlt_pm_flag.store(true);
        flag_updated.store(false);
    }
    std::shared_ptr<CountingDtcService> dtc = std::make_shared<CountingDtcService>();
};

// One exchange at a time through a proxy that nothing else uses: no subscription, so no
// notification starts a request of its own.
class DltFlagRequest : public DltFlagState {
protected:
    void SetUp() override
    {
        DltFlagState::SetUp();
        service.offer();
        observer.proxy = std::make_shared<ProxyClass>(find_played_service());
    }
    void TearDown() override
    {
        observer.proxy.reset();
        EXPECT_TRUE(service.withdraw());
        DltFlagState::TearDown();
    }
    std::string request()
    {
        testing::internal::CaptureStderr();
        request_dlt_flag(observer);
        return testing::internal::GetCapturedStderr();
    }

    PlayedDistribution service;
    FakeObserver observer;
};

TEST_F(DltFlagRequest, AsksForTheActivationIdAndTakesFirstByteOneAsOn)
{
    service.answer_with({1, 0, 0});
    const std::string err = request();
    EXPECT_TRUE(dlt_pm_flag.load());
    EXPECT_TRUE(flag_updated.load());
    EXPECT_EQ(dtc->states(), std::vector<std::uint8_t>{1});
    EXPECT_EQ(err,
              "Launcher: request_dlt_flag : flag_updated=true \n"
              "DLT Launcher: send DTC; flag = 1 DTC=FAIL\n");
    const auto requests = service.requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].arg, 0U);
    EXPECT_EQ(requests[0].ids, PlayedDistribution::Ids{1293});
}

TEST_F(DltFlagRequest, EveryOtherFirstByteSwitchesOffAndRepeatsAreReportedAgain)
{
    dlt_pm_flag.store(true);
    service.answer_with({2});
    (void)request();
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_TRUE(flag_updated.load());

    flag_updated.store(false);
    (void)request();
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_TRUE(flag_updated.load());
    EXPECT_EQ(dtc->states(), (std::vector<std::uint8_t>{0, 0}));
}

TEST_F(DltFlagRequest, AnswersWithAReturnCodeOrWithoutValuesChangeNothing)
{
    service.answer_with({1}, 3);
    EXPECT_EQ(request(), "");
    service.answer_with({});
    EXPECT_EQ(request(), "DLT Launcher: DDD DSA answer without data values; DLT flag unchanged\n");
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_FALSE(flag_updated.load());
    EXPECT_TRUE(dtc->states().empty());
}

TEST_F(DltFlagRequest, TransportErrorsAreLoggedAndLeaveTheFlag)
{
    service.fail_requests();
    const std::string failed = request();
    EXPECT_EQ(failed.rfind("DLT Launcher: DDD DSA connection lost Transport exception", 0), 0U) << failed;

    ASSERT_TRUE(service.withdraw());
    const std::string gone = request();
    EXPECT_EQ(gone.rfind("DLT Launcher: DDD DSA connection lost ", 0), 0U) << gone;
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_FALSE(flag_updated.load());
    EXPECT_TRUE(dtc->states().empty());
}

TEST_F(DltFlagRequest, WithoutAProxyNothingIsAskedAndUpdateSaysSo)
{
    observer.proxy.reset();
    testing::internal::CaptureStderr();
    updateDltFlagFromService(observer);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Get getDiagnosticDataValues start ProxyNotAvailable\n"
              "Launcher: request from DSA :  DLT-flag = 0\n");
    EXPECT_TRUE(service.requests().empty());
    EXPECT_FALSE(unsubscribe_data_values_hash(observer));
}

// The real observer, following the played service through discovery and notifications.
// The one observer of the launcher is a static object that outlives every handler; the
// test keeps it the same way.
DLTActivationFlagObserver& the_observer()
{
    static DLTActivationFlagObserver observer;
    return observer;
}

class DltActivationObserver : public DltFlagState {
protected:
    void TearDown() override
    {
        testing::internal::CaptureStderr();
        (void)unsubscribe_data_values_hash(the_observer());
        the_observer().StopConnectAsynchronously();
        // A notification's request may still be running; it must not end in the next test.
        if (const auto proxy = the_observer().getProxy()) {
            proxy->dataValuesHash.UnsetReceiveHandler();
        }
        the_observer().setProxy(nullptr);
        (void)testing::internal::GetCapturedStderr();
        EXPECT_TRUE(service.withdraw());
        DltFlagState::TearDown();
    }
    std::size_t request_count() { return service.requests().size(); }

    PlayedDistribution service;
};

TEST_F(DltActivationObserver, FindsTheServiceSubscribesAndFetchesTheFlagAtOnce)
{
    service.answer_with({1});
    service.offer();
    the_observer().startFindService();
    ASSERT_TRUE(the_observer().getFindServiceHandle());
    ASSERT_TRUE(eventually([] { return flag_updated.load(); }));
    EXPECT_TRUE(dlt_pm_flag.load());
    EXPECT_TRUE(the_observer().getProxy());

    // A notification is only a trigger: it makes the observer ask again.
    flag_updated.store(false);
    service.answer_with({0});
    const std::size_t before = request_count();
    // Notifications reach only an active subscription, so notify until one gets through.
    ASSERT_TRUE(eventually([&] {
        service.dataValuesHash.Update({{}});
        return eventually([&] { return request_count() > before && flag_updated.load(); },
                          std::chrono::milliseconds(50));
    }));
    EXPECT_FALSE(dlt_pm_flag.load());

    // Once the service is gone the proxy is dropped and the marker file counts again.
    ASSERT_TRUE(service.withdraw());
    ASSERT_TRUE(eventually([] { return !the_observer().getProxy(); }));
    EXPECT_FALSE(dlt_pm_flag.load());
    EXPECT_TRUE(unsubscribe_data_values_hash(the_observer()) == false);
}

TEST_F(DltActivationObserver, StoppingWithoutASearchLogsOnlyItsFirstLine)
{
    testing::internal::CaptureStderr();
    the_observer().StopConnectAsynchronously();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "LAUD : StopConnectAsynchronously\n");

    testing::internal::CaptureStderr();
    the_observer().startFindService();
    the_observer().StopConnectAsynchronously();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "LAUD : StopConnectAsynchronously\n"
              "LAUD : LAUD_startFindService: Instance ID 1 \n"
              "LAUD : LAUD_startFindService: handle is OK \n"
              "LAUD : StopConnectAsynchronously\n"
              "LAUD : StopConnectAsynchronously: Instance ID 1 \n");
    EXPECT_FALSE(the_observer().getFindServiceHandle());
}

TEST_F(DltActivationObserver, AFindResultWithSeveralHandlesUsesTheFirst)
{
    service.answer_with({1});
    service.offer();
    const HandleType first = find_played_service();
    const HandleType other(first.service_id(), first.instance_id(), first.major_version(), first.minor_version(),
                           vela::com::runtime::Endpoint{});
    testing::internal::CaptureStderr();
    the_observer().findServiceStart({first, other});
    (void)testing::internal::GetCapturedStderr();
    ASSERT_TRUE(the_observer().getProxy());
    EXPECT_EQ(the_observer().getProxy()->GetHandle(), first);
    EXPECT_TRUE(dlt_pm_flag.load());
    EXPECT_TRUE(flag_updated.load());
}

}  // namespace

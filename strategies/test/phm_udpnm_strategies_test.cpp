#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/un.h>

#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"
#include "strategies/test/strategy_system.hpp"

using testing::_;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Return;
using Lines = std::vector<std::string>;

namespace {

const std::string path_entry{"PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"};
const std::string udpnm_directory{"/data/target/etc/adaptive/ara_UdpNm/"};

TEST(PhmStrategy, WatchdogOptionFollowsTheDeviceExceptOnQemu)
{
    Strategy_system api;
    const std::pair<std::uint8_t, Lines> cases[] = {{vm_adaptive, {"--dummy_watchdog"}}, {vm_housekeeping, {}},
                                                    {qemu_arm64, {"--dummy_watchdog"}}, {partition_unknown, {}}};
    EXPECT_CALL(api, stat(testing::StrEq("/dev/watchdog"), _)).WillOnce(Return(-1)).WillOnce(Return(0));
    for (const auto& [partition, options] : cases) {
        api.fork_results = {0};
        Launcher_strategy_PHM strategy(partition);
        EXPECT_TRUE(strategy.prepare(&api, nullptr));
        EXPECT_FALSE(strategy.start());
        Lines argv{"/usr/bin/quor_phmd", "--autostart"};
        argv.insert(argv.end(), options.begin(), options.end());
        EXPECT_EQ(api.execs.back().argv, argv);
    }
    EXPECT_THAT(api.execs.back().envp, ElementsAre(path_entry, "NOTIFY_SOCKET=/var/run/adaptive/ara_PHM/phm_launch_daemon",
                                                   "APP_INSTANCE_ID=phm-daemon-container"));
}

TEST(PhmStrategy, SocketIsBoundAtStartNotAtPrepare)
{
    Strategy_system api;
    Launcher_strategy_PHM strategy(vm_java);
    EXPECT_CALL(api, bind(_, _, _)).Times(0);
    EXPECT_TRUE(strategy.prepare(&api, nullptr));
    testing::Mock::VerifyAndClearExpectations(&api);
    EXPECT_CALL(api, bind(_, _, _)).WillOnce([](int, const sockaddr* address, socklen_t) {
        EXPECT_STREQ(reinterpret_cast<const sockaddr_un*>(address)->sun_path,
                     "/var/run/adaptive/ara_PHM/phm_launch_daemon");
        return 0;
    });
    EXPECT_TRUE(strategy.start());
}

class UdpnmStrategy : public testing::Test {
protected:
    std::unique_ptr<Launcher_strategy_UDPNM> make(std::uint8_t partition, const Lines& files)
    {
        reader.directories[udpnm_directory] = files;
        auto strategy = std::make_unique<Launcher_strategy_UDPNM>(partition);
        strategy->set_directory_reader(&reader);
        return strategy;
    }

    Strategy_system api;
    Fake_directory_reader reader;
};

TEST_F(UdpnmStrategy, ConfigurationByPartitionAndEnvironment)
{
    const std::pair<std::uint8_t, std::string> cases[] = {{vm_adaptive, "quor_udpnm_vosk1_sys01.json"},
                                                          {vm_java, "quor_udpnm_vosk1_sys02.json"},
                                                          {qemu_arm64, "quor_udpnm.json"}};
    for (const auto& [partition, configuration] : cases) {
        api.fork_results = {0};
        auto strategy = make(partition, {"quor_udpnm_vosk1_sys02.json", "quor_udpnm_vosk1_sys01.json", "quor_udpnm.json"});
        ASSERT_TRUE(strategy->prepare(&api, nullptr));
        EXPECT_FALSE(strategy->start());
        EXPECT_EQ(api.execs.back().path, "/usr/bin/quor_udpnmd");
        EXPECT_THAT(api.execs.back().argv, ElementsAre("/usr/bin/quor_udpnmd", "-c", udpnm_directory + configuration));
        EXPECT_THAT(api.execs.back().envp,
                    ElementsAre(path_entry, "NOTIFY_SOCKET=/var/run/adaptive/ara_UdpNm/udpnm-daemon-1-container",
                                "APP_INSTANCE_ID=udpnm-daemon-1-container"));
    }
}

TEST_F(UdpnmStrategy, Housekeeping_StartsNothingAndSignalsNoChild)
{
    auto strategy = make(vm_housekeeping, {"quor_udpnm.json"});
    ASSERT_TRUE(strategy->prepare(&api, nullptr));
    EXPECT_CALL(api, fork()).Times(0);
    EXPECT_CALL(api, kill(testing::Gt(0), _)).Times(0);
    EXPECT_CALL(api, kill(-1, _)).Times(testing::AnyNumber());
    testing::internal::CaptureStderr();
    EXPECT_TRUE(strategy->start());
    strategy->stop();
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("[LS_UDPNM]: Not starting UdpNM daemon on HK partition, but keep strata-launcher running...\n"));
}

TEST_F(UdpnmStrategy, MissingConfigurationFailsPrepare)
{
    const std::pair<std::uint8_t, std::string> cases[] = {
        {vm_housekeeping, "Launcher_strategy_UDPNM : config file= " + udpnm_directory + "quor_udpnm.json is NOT available\n"},
        {vm_adaptive, "Launcher_strategy_UDPNM : directory " + udpnm_directory + " doesn't exist \n"}};
    for (const auto& [partition, text] : cases) {
        auto strategy = make(partition, {"quor_udpnm_vosk1_sys01.json"});
        if (partition == vm_adaptive) {
            reader.directories.clear();
        }
        testing::internal::CaptureStderr();
        EXPECT_FALSE(strategy->prepare(&api, nullptr));
        EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr(text));
    }
}

}  // namespace

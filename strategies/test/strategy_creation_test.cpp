#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_daemon.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"
#include "strategies/test/fake_directory_reader.hpp"
#include "strategies/test/fake_system_call_api.hpp"
#include "support/test/recording_logging_backend.hpp"

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::IsSupersetOf;

namespace {

template <typename Expected>
bool creates(std::uint8_t type, std::uint8_t partition)
{
    std::unique_ptr<Launcher_strategy_interface> strategy(
        Launcher_strategy_interface::createLauncherStrategy(Launcher_configuration{type, partition}));
    return dynamic_cast<Expected*>(strategy.get()) != nullptr;
}

TEST(StrategyCreation, KindAndPartitionSelectTheStrategy)
{
    for (std::uint8_t partition : {vm_adaptive, vm_java, vm_housekeeping, qemu_arm64}) {
        EXPECT_TRUE(creates<Launcher_strategy_COM_daemon>(COM, partition));
        EXPECT_TRUE(creates<Launcher_strategy_DLT>(DLT, partition));
        EXPECT_TRUE(creates<Launcher_strategy_PHM>(PHM, partition));
        EXPECT_TRUE(creates<Launcher_strategy_UDPNM>(UDPNM, partition));
    }
    EXPECT_TRUE(creates<Launcher_strategy_COM_complex>(COM_BRIDGE, vm_housekeeping));
    EXPECT_TRUE(creates<Launcher_strategy_COM_simple>(COM_BRIDGE, vm_adaptive));
    EXPECT_TRUE(creates<Launcher_strategy_COM_simple>(COM_BRIDGE, vm_java));
    EXPECT_TRUE(creates<Launcher_strategy_COM_simple>(COM_BRIDGE, qemu_arm64));
}

// The facade stays muted for the whole run, so only the DLT strategy, which must not log
// through the platform log while it restarts it, may use it; everyone else's lines would be
// lost. Progress lines never reach standard error, which is kept for failures.
TEST(StrategyLogging, OnlyTheDltStrategyWritesThroughTheFacadeAndProgressStaysOffTheConsole)
{
    ScopedRecordingBackend facade;
    Fake_system_call_api api;
    Fake_directory_reader reader;
    reader.add_directory("/etc/", {"dlt_ara_qemu.conf"});
    reader.add_directory("/data/target/etc/adaptive/ara_UdpNm/", {"quor_udpnm.json"});
    testing::internal::CaptureStderr();
    {
        Launcher_strategy_COM_complex complex;
        EXPECT_FALSE(complex.start());
        for (const Launcher_configuration configuration :
             {Launcher_configuration{COM, qemu_arm64}, Launcher_configuration{COM_BRIDGE, vm_housekeeping},
              Launcher_configuration{PHM, qemu_arm64}, Launcher_configuration{UDPNM, qemu_arm64}}) {
            std::unique_ptr<Launcher_strategy_interface> strategy(
                Launcher_strategy_interface::createLauncherStrategy(configuration));
            if (auto* udpnm = dynamic_cast<Launcher_strategy_UDPNM*>(strategy.get())) {
                udpnm->set_directory_reader(&reader);
            }
            (void)strategy->prepare(&api, nullptr);
            api.set_datagram("READY=1");
            (void)strategy->start();
            strategy->stop();
        }
        EXPECT_THAT(facade.log->texts(), IsEmpty());

        Launcher_strategy_DLT dlt(qemu_arm64);
        dlt.set_directory_reader(&reader);
        ASSERT_TRUE(dlt.prepare(&api, nullptr));
        (void)dlt.start();
        dlt.stop();
    }
    api.end_all_children();
    const std::string console = testing::internal::GetCapturedStderr();
    for (const char* progress :
         {"[LS_COM_C]: Stopping", "Launcher_strategy_COM_daemon", "create process /usr", "Start com_daemon PID= ",
          "[LS_COM_S]: com_daemon is ready", "[LS_COM]: did not any", "Launcher_strategy_PHM", "run phm", "=====",
          "watchdog", "phm_daemon is started", "stop PHM daemon", "Launcher_strategy_UDPNM", "command line ARGV",
          "run UdpNm", "udpnm-daemon-1-container is started", "stop UDPNM daemon", "still runinng", "stop DTL",
          "run dlt-process", "[LS_DLT]: dlt_daemon is started", "Launcher_strategy_DLT : run", "Stop virtual console"}) {
        EXPECT_THAT(console, Not(HasSubstr(progress)));
    }
    EXPECT_THAT(facade.log->texts("debug"),
                IsSupersetOf({"Launcher_strategy_DLT : run  PATH/usr/bin/dlt-daemon  ARGU: ", "stop DTL daemon ...",
                              "STOP DLT LAUNCHER done ..."}));
}

}  // namespace

// SPDX-License-Identifier: Apache-2.0
#include "dlt_activation/dlt_flag_file.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "common/launcher_types.hpp"
#include "dlt_activation/dlt_flags.hpp"
#include "dlt_activation/i_dlt_activation_flag_observer.hpp"
#include "dtc/dtc_service.hpp"
#include "support/error_line.hpp"

namespace {
constexpr std::uint32_t polls_between_checks = 50;

std::string& flag_file_path_slot()
{
    static std::string path = "/data/target/etc/adaptive/ara_DLT/DLTActivation";
    return path;
}

// The file matters only while the service cannot answer: no search running, or a search
// running that has not found the service.
bool service_unreachable(IDLTActivationFlagObserver& observer)
{
    return !observer.getFindServiceHandle() || !observer.getProxy();
}
}  // namespace

// Declared only in the test-support header: tests point the launcher at a file of their
// own instead of the fixed path of the target.
void set_dlt_flag_file_path_for_testing(const std::string& path)
{
    flag_file_path_slot() = path;
}

std::string dlt_flag_file_path()
{
    return flag_file_path_slot();
}

bool dlt_flag_file_readable()
{
    // Close-on-exec: the descriptor lives only for this check, but the launcher forks.
    // Non-blocking: the main loop calls this, and opening a FIFO put in the marker's place
    // would otherwise wait for a writer and keep the launcher from ever seeing SIGTERM.
    const int descriptor = ::open(dlt_flag_file_path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) {
        return false;
    }
    (void)::close(descriptor);
    return true;
}

void check_dlt_flag_file(std::uint8_t kind, std::uint32_t& counter, IDLTActivationFlagObserver& observer)
{
    if (kind != DLT) {
        return;
    }
    if (counter < polls_between_checks) {
        ++counter;
        return;
    }
    counter = 0;

    const bool before = dlt_pm_flag.load();
    if (service_unreachable(observer) && !dlt_pm_flag.load() && dlt_flag_file_readable()) {
        dlt_pm_flag.store(true);
        flag_updated.store(true);
        write_error_line("Launcher: switch ON DLT logging by Debug file ; dlt_pm_flag/updated = true");
    }
    const bool now = dlt_pm_flag.load();
    if (now != before) {
        send_dtc(now);
        write_error_line(std::string("Launcher: switch DLT logging by file ; ") +
                         (now ? "DLT-flag = 1" : "DLT-flag = 0"));
    }
}

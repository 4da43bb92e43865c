// SPDX-License-Identifier: Apache-2.0
#include "dtc/dtc_service.hpp"

#include <atomic>
#include <utility>

#include "common/launcher_types.hpp"
#include "dtc/dtc_names.hpp"
#include "support/error_line.hpp"

namespace {
// Reset on the main thread while middleware threads may be sending through it; every
// reader takes its own counted copy, so a service being reset stays alive until the
// last send through it returns.
std::shared_ptr<DTCService> dtc_service;
}  // namespace

std::shared_ptr<DTCService> get_dtc_service()
{
    return std::atomic_load(&dtc_service);
}

void set_dtc_service(std::shared_ptr<DTCService> service)
{
    std::atomic_store(&dtc_service, std::move(service));
}

void send_dtc(bool flag)
{
    const std::shared_ptr<DTCService> service = get_dtc_service();
    if (!service) {
        return;
    }
    write_error_line(std::string("DLT Launcher: send DTC; flag = ") + (flag ? "1 DTC=FAIL" : "0 DTC=CLEAR"));
    (void)service->SetDTCState(flag ? dtc_state_failed : dtc_state_passed, true);
}

void shutdown_dtc(std::uint8_t kind)
{
    if (kind != DLT) {
        return;
    }
    const std::shared_ptr<DTCService> service = get_dtc_service();
    if (!service) {
        return;
    }
    (void)service->Shutdown();
    write_error_line("DTL launcher : Shutdown DTC");
    set_dtc_service(nullptr);
}

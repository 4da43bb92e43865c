// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_DTC_SERVICE_IMPL_HPP
#define STRATA_DTC_DTC_SERVICE_IMPL_HPP

#include <cstdint>
#include <memory>
#include <mutex>

#include "dtc/diagnostic_monitor_service_interface.hpp"
#include "dtc/dtc_service.hpp"

// Reports DTC states through the diagnostic monitor provider. Only a started service
// remembers and sends states; every start forgets the last one so the first state after
// it always reaches the diagnostic manager.
//
// send_dtc runs on the main thread and on middleware threads (flag answers, InitMonitor),
// so the state members are guarded by one mutex: a state decision and its send happen
// together, and the event order matches the order of the remembered states. The provider's
// start and stop run outside the lock, because ending an offer may wait for an InitMonitor
// handler that is itself about to send a state.
class DTCServiceImpl final : public DTCService {
public:
    explicit DTCServiceImpl(std::shared_ptr<DiagnosticMonitorServiceInterface> monitor_service);
    ~DTCServiceImpl() override;
    DTCServiceImpl(const DTCServiceImpl&) = delete;
    DTCServiceImpl& operator=(const DTCServiceImpl&) = delete;
    DTCServiceImpl(DTCServiceImpl&&) = delete;
    DTCServiceImpl& operator=(DTCServiceImpl&&) = delete;

    bool Startup() override;
    bool Shutdown() override;
    bool SetDTCState(std::uint8_t state, bool forceSet) override;
    bool GetDTCState(std::uint8_t& state) override;

private:
    std::uint8_t lastState{0};
    bool hasLastState{false};
    bool started{false};
    std::shared_ptr<DiagnosticMonitorServiceInterface> monitorService;
    std::mutex mutex_;
};

#endif

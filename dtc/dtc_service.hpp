// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_DTC_DTC_SERVICE_HPP
#define STRATA_DTC_DTC_SERVICE_HPP

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

// Reports the DLT activation state as a diagnostic trouble code.
class DTCService {
public:
    virtual ~DTCService() = default;
    virtual bool Startup() = 0;
    virtual bool Shutdown() = 0;
    virtual bool SetDTCState(std::uint8_t state, bool forceSet) = 0;
    virtual bool GetDTCState(std::uint8_t& state) = 0;
};

// Empty on failure.
std::shared_ptr<DTCService> CreateDTCService(const std::string& name, std::function<void()> callback);

// The process-wide service, set by the DLT launcher's initialisation. Read and written
// from the main thread and from middleware threads, so only through these two.
std::shared_ptr<DTCService> get_dtc_service();
void set_dtc_service(std::shared_ptr<DTCService> service);

void send_dtc(bool flag);
void shutdown_dtc(std::uint8_t kind);

#endif

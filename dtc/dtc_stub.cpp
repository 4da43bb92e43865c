// Placeholder until the DTC service lands: creation fails.
#include "dtc/dtc_service.hpp"

#include <atomic>

namespace {
std::shared_ptr<DTCService> dtc_service;
}

std::shared_ptr<DTCService> CreateDTCService(const std::string&, std::function<void()>)
{
    return nullptr;
}
std::shared_ptr<DTCService> get_dtc_service()
{
    return std::atomic_load(&dtc_service);
}
void set_dtc_service(std::shared_ptr<DTCService> service)
{
    std::atomic_store(&dtc_service, std::move(service));
}
void send_dtc(bool) {}
void shutdown_dtc(std::uint8_t) {}

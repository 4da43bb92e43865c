// Placeholder until the diagnostic monitor provider lands: creation fails.
#include "dtc/dtc_service.hpp"

std::shared_ptr<DTCService> CreateDTCService(const std::string&, std::function<void()>)
{
    return nullptr;
}

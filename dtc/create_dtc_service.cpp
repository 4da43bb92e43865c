// SPDX-License-Identifier: Apache-2.0
#include <exception>
#include <memory>
#include <utility>

#include "dtc/dm_service.hpp"
#include "dtc/dtc_service.hpp"
#include "dtc/dtc_service_impl.hpp"
#include "support/logging.hpp"

std::shared_ptr<DTCService> CreateDTCService(const std::string& name, std::function<void()> callback)
{
    log_info() << "DTCService::CreateDTCService()";
    try {
        auto monitor = std::make_shared<DMService>(name, std::move(callback));
        return std::make_shared<DTCServiceImpl>(std::move(monitor));
    } catch (const std::exception& error) {
        log_error() << "CreateDTCService -> Exception: " << error.what();
    } catch (...) {
        log_error() << "CreateDTCService -> Unknown Exception";
    }
    return nullptr;
}

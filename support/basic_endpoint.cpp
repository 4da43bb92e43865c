// SPDX-License-Identifier: Apache-2.0
#include "support/basic_endpoint.hpp"

#include <exception>
#include <utility>

#include "support/logging.hpp"

BasicEndpoint::BasicEndpoint(std::string instance, std::string kind)
    : instance_(std::move(instance)), kind_(std::move(kind))
{
}

std::string BasicEndpoint::GetInstance() const
{
    return instance_;
}

const std::string& BasicEndpoint::GetDescription() const noexcept
{
    return description_;
}

void BasicEndpoint::build_description()
{
    description_ =
        kind_ + " '" + GetServiceName() + "', Instance '" + GetInstance() + "', Version '" + GetVersion() + "': ";
}

bool BasicEndpoint::run_hook(const char* operation, Hook hook)
{
    log_info() << description_ << operation;
    try {
        return (this->*hook)();
    } catch (const std::exception& exception) {
        log_error() << operation << " -> Exception: " << exception.what();
    } catch (...) {
        log_error() << operation << " -> Unknown Exception";
    }
    return false;
}

bool BasicEndpoint::TryCreate()
{
    return run_hook("TryCreate", &BasicEndpoint::Create);
}
bool BasicEndpoint::TryDelete()
{
    return run_hook("TryDelete", &BasicEndpoint::Delete);
}
bool BasicEndpoint::TryInitialize()
{
    return run_hook("TryInitialize", &BasicEndpoint::Initialize);
}
bool BasicEndpoint::TryUninitialize()
{
    return run_hook("TryUninitialize", &BasicEndpoint::Uninitialize);
}
bool BasicEndpoint::TryStart()
{
    return run_hook("TryStart", &BasicEndpoint::Start);
}
bool BasicEndpoint::TryStop()
{
    return run_hook("TryStop", &BasicEndpoint::Stop);
}

bool BasicEndpoint::StartUp()
{
    build_description();
    if (!TryCreate()) {
        (void)TryDelete();
        return false;
    }
    if (!TryInitialize()) {
        (void)TryUninitialize();
        (void)TryDelete();
        return false;
    }
    if (!TryStart()) {
        (void)TryStop();
        (void)TryUninitialize();
        (void)TryDelete();
        return false;
    }
    return true;
}

bool BasicEndpoint::ShutDown()
{
    // All three run whatever the earlier ones returned: a stuck stop must not keep the
    // endpoint's resources alive.
    const bool stopped = TryStop();
    const bool uninitialized = TryUninitialize();
    const bool deleted = TryDelete();
    return stopped && uninitialized && deleted;
}

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_BASIC_ENDPOINT_HPP
#define STRATA_SUPPORT_BASIC_ENDPOINT_HPP

#include <string>

#include "support/communication_endpoint.hpp"

// The create / initialize / start lifecycle of a service endpoint. A concrete endpoint
// supplies the six hooks; any of them may fail by returning false or by throwing. A failed
// step is undone together with every earlier step, in reverse order, so the undo hooks
// must accept being called for a step that did not complete.
class BasicEndpoint : public CommunicationEndpoint {
public:
    BasicEndpoint(std::string instance, std::string kind);

    bool StartUp() override;
    bool ShutDown() override;
    std::string GetInstance() const override;

    bool TryCreate();
    bool TryDelete();
    bool TryInitialize();
    bool TryUninitialize();
    bool TryStart();
    bool TryStop();

    const std::string& GetDescription() const noexcept;

protected:
    virtual bool Create() = 0;
    virtual bool Delete() = 0;
    virtual bool Initialize() = 0;
    virtual bool Uninitialize() = 0;
    virtual bool Start() = 0;
    virtual bool Stop() = 0;

private:
    using Hook = bool (BasicEndpoint::*)();
    bool run_hook(const char* operation, Hook hook);
    void build_description();

    std::string description_;
    std::string instance_;
    std::string kind_;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_COMMUNICATION_ENDPOINT_HPP
#define STRATA_SUPPORT_COMMUNICATION_ENDPOINT_HPP

#include <string>

// A provided or consumed service as its owner sees it: brought up and down as a whole.
class CommunicationEndpoint {
public:
    CommunicationEndpoint() = default;
    virtual ~CommunicationEndpoint() = default;
    CommunicationEndpoint(const CommunicationEndpoint&) = delete;
    CommunicationEndpoint& operator=(const CommunicationEndpoint&) = delete;
    CommunicationEndpoint(CommunicationEndpoint&&) = delete;
    CommunicationEndpoint& operator=(CommunicationEndpoint&&) = delete;

    virtual bool StartUp() = 0;
    virtual bool ShutDown() = 0;
    virtual std::string GetServiceName() const = 0;
    virtual std::string GetInstance() const = 0;
    virtual std::string GetVersion() const = 0;
};

#endif

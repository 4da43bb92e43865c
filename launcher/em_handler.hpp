// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_EM_HANDLER_HPP
#define STRATA_LAUNCHER_EM_HANDLER_HPP

#include "launcher/em_handler_interface.hpp"
#include "process/system_call_api_interface.hpp"

class EM_handler : public EM_handler_interface {
public:
    explicit EM_handler(System_call_api_interface* system_call);
    ~EM_handler() override = default;
    EM_handler(const EM_handler&) = delete;
    EM_handler& operator=(const EM_handler&) = delete;

    // Installs the handler for SIGTERM, SIGINT and SIGCHLD; every call is made even after
    // a failure, so that as many signals as possible stay handled.
    bool register_signal_handler(Signal_handler handler) override;
    void report_ready() override;

private:
    System_call_api_interface* system_call;
};

#endif

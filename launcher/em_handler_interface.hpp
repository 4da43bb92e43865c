// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_LAUNCHER_EM_HANDLER_INTERFACE_HPP
#define STRATA_LAUNCHER_EM_HANDLER_INTERFACE_HPP

// The launcher's side of its own service manager: signals in, readiness out.
class EM_handler_interface {
public:
    using Signal_handler = void (*)(int);

    virtual ~EM_handler_interface() = default;
    virtual bool register_signal_handler(Signal_handler handler) = 0;
    virtual void report_ready() = 0;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_SUPPORT_LOGGING_HPP
#define STRATA_SUPPORT_LOGGING_HPP

// The logging facade of the service-side code. The process starts with the muted backend
// and stays with it unless someone installs another, so a statement such as
//     log_info() << "offered " << instance;
// costs the formatting of its values and nothing more.

#include <memory>
#include <string>

#include "support/ara_logging_adapter.hpp"
#include "support/ara_logging_backend.hpp"
#include "support/logging_adapter.hpp"
#include "support/logging_backend.hpp"
#include "support/logging_stream.hpp"
#include "support/muted_logging_backend.hpp"

LoggingStream log_verbose();
LoggingStream log_debug();
LoggingStream log_info();
LoggingStream log_warn();
LoggingStream log_error();
LoggingStream log_fatal();
void log_flush_all();

// A null backend reinstalls the muted one. Install before other threads log: streams
// already handed out keep their own adapter, but the switch itself is not ordered with
// statements running on other threads.
void set_logging_backend(std::shared_ptr<LoggingBackend> backend);

// Installs the platform backend. The platform log is initialised by the first call only;
// later calls ignore their arguments and reinstall the same backend.
void init_ara_logging(const std::string& app_id, const std::string& description);

#endif

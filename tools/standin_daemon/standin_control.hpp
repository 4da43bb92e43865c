// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_STANDIN_DAEMON_STANDIN_CONTROL_HPP
#define STRATA_TOOLS_STANDIN_DAEMON_STANDIN_CONTROL_HPP

#include <string>

// What a stand-in daemon does, read from "<control dir>/<executable name>.conf":
//
//   ready       = now | never | <milliseconds>   when to send the readiness datagram
//   first       = <text>                         a datagram sent before it ("\n" allowed)
//   ready_text  = <text>                         the readiness datagram (default READY=1)
//   ignore_term = yes | no                       survive SIGTERM and SIGINT
//   exit_after  = <milliseconds>                 end by itself after that time
//   exit_code   = <number>                       status of that end (default 0)
//
// Blank lines and lines starting with '#' are skipped.
class Standin_control {
public:
    static constexpr long never = -1;

    // False with a reason in `error` for an unknown key or a bad value; a missing file is
    // no error (the defaults: ready at once, stop on SIGTERM).
    bool parse(const std::string& text, std::string& error);
    bool load(const std::string& path, std::string& error);

    long ready_after_ms{0};
    std::string first_datagram;
    std::string ready_datagram{"READY=1"};
    bool ignore_term{false};
    long exit_after_ms{never};
    int exit_code{0};

private:
    bool apply(const std::string& key, const std::string& value, std::string& error);
};

#endif

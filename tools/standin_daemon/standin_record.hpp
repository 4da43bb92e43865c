// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TOOLS_STANDIN_DAEMON_STANDIN_RECORD_HPP
#define STRATA_TOOLS_STANDIN_DAEMON_STANDIN_RECORD_HPP

#include <sys/types.h>

#include <cstdint>
#include <string>

// The stand-in's log of what happened to it, one "<pid> <key> <value>" line per event,
// each written with one append so that lines of restarted instances never interleave
// and nothing is lost when the process is killed.
class Standin_record {
public:
    explicit Standin_record(const std::string& path);
    ~Standin_record();
    Standin_record(const Standin_record&) = delete;
    Standin_record& operator=(const Standin_record&) = delete;

    void line(const std::string& key, const std::string& value);
    // The value with the CLOCK_MONOTONIC time in nanoseconds appended.
    void timed_line(const std::string& key, const std::string& value);
    int descriptor() const { return descriptor_; }

    static std::uint64_t monotonic_ns();

private:
    int descriptor_{-1};
    pid_t pid_;
};

#endif

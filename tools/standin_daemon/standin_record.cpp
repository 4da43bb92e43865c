// SPDX-License-Identifier: Apache-2.0
#include "tools/standin_daemon/standin_record.hpp"

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

#include <iostream>

Standin_record::Standin_record(const std::string& path)
    : descriptor_(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)), pid_(::getpid())
{
}

Standin_record::~Standin_record()
{
    if (descriptor_ != -1) {
        (void)::close(descriptor_);
    }
}

void Standin_record::line(const std::string& key, const std::string& value)
{
    if (descriptor_ == -1) {
        return;
    }
    std::string text = std::to_string(pid_) + " " + key + " " + value;
    for (char& c : text) {
        if (c == '\n') {
            c = ' ';
        }
    }
    text += '\n';
    // One write per line keeps lines from concurrent writers whole in the appended file.
    // A lost line would otherwise show only as a missing record in the test that reads it.
    if (::write(descriptor_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::cerr << "strata-standin: record line lost: " << text << std::flush;
    }
}

void Standin_record::timed_line(const std::string& key, const std::string& value)
{
    line(key, value.empty() ? std::to_string(monotonic_ns()) : value + " " + std::to_string(monotonic_ns()));
}

std::uint64_t Standin_record::monotonic_ns()
{
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000ULL + static_cast<std::uint64_t>(now.tv_nsec);
}

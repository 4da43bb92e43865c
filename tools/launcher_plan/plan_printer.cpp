// SPDX-License-Identifier: Apache-2.0
#include "tools/launcher_plan/plan_printer.hpp"

#include <algorithm>

#include <nlohmann/json.hpp>

namespace {

std::string signal_name(int signal)
{
    switch (signal) {
        case 0:
            return "signal 0";
        case 9:
            return "SIGKILL";
        case 15:
            return "SIGTERM";
        default:
            return "signal " + std::to_string(signal);
    }
}

std::string outcome(bool done)
{
    return done ? "succeeds" : "fails";
}

void print_list(std::ostream& out, const std::string& title, const std::vector<std::string>& items, bool quote)
{
    if (items.empty()) {
        return;
    }
    out << title << ":\n";
    std::vector<std::string> listed;
    for (const std::string& item : items) {
        // A socket is removed before it is bound and again at the end; once says it.
        if (quote && std::find(listed.begin(), listed.end(), item) != listed.end()) {
            continue;
        }
        listed.push_back(item);
        out << "  " << (quote ? Plan_printer::quoted({item}) : item) << '\n';
    }
}

void print_daemon(std::ostream& out, std::size_t number, const Planned_daemon& daemon)
{
    out << "\ndaemon " << number << " (planned pid " << daemon.planned_pid << "): " << daemon.path << '\n';
    out << "  argv: " << Plan_printer::quoted(daemon.argv) << '\n';
    out << "  envp: " << Plan_printer::quoted(daemon.envp) << '\n';
    out << "  readiness: ";
    if (daemon.readiness_socket.empty()) {
        out << "no NOTIFY_SOCKET";
    } else {
        out << "NOTIFY_SOCKET " << Plan_printer::quoted({daemon.readiness_socket});
    }
    if (daemon.readiness_awaited) {
        out << ", awaited up to " << daemon.readiness_limit_seconds << " s\n";
    } else {
        out << ", not awaited\n";
    }
    out << "  stop: " << signal_name(daemon.stop.termination_signal) << "; gone when: " << daemon.stop.probe
        << "; bound: " << daemon.stop.bound << "; SIGKILL: " << daemon.stop.kill << '\n';
}

// A folder as big as a library folder says nothing more with all its names listed.
constexpr std::size_t listed_entries = 16;

// The same look, with the same result, already listed.
bool read_before(const std::vector<Planned_read>& reads, std::size_t index)
{
    for (std::size_t earlier = 0; earlier < index; ++earlier) {
        const Planned_read& seen = reads[earlier];
        if (seen.path == reads[index].path && seen.kind == reads[index].kind && seen.found == reads[index].found &&
            seen.entries == reads[index].entries) {
            return true;
        }
    }
    return false;
}

void print_reads(std::ostream& out, const std::vector<Planned_read>& reads)
{
    if (reads.empty()) {
        return;
    }
    out << "\nread:\n";
    for (std::size_t index = 0; index < reads.size(); ++index) {
        const Planned_read& read = reads[index];
        if (read_before(reads, index)) {
            continue;
        }
        out << "  " << read.kind << ' ' << read.path << ": " << (read.found ? "found" : "missing");
        if (read.entries.size() > listed_entries) {
            out << ", " << read.entries.size() << " entries";
        } else if (!read.entries.empty()) {
            out << ", " << read.entries.size() << (read.entries.size() == 1 ? " entry: " : " entries: ")
                << Plan_printer::quoted(read.entries);
        }
        out << '\n';
    }
}

void print_signals(std::ostream& out, const std::vector<Planned_signal>& signals)
{
    if (signals.empty()) {
        return;
    }
    out << "signals when stopping daemons that obey SIGTERM at once:\n";
    for (const Planned_signal& sent : signals) {
        out << "  " << signal_name(sent.signal) << " to " << sent.pid << (sent.delivered ? "" : " (refused)") << '\n';
    }
}

nlohmann::json json_of(const Planned_daemon& daemon)
{
    return {{"planned_pid", daemon.planned_pid},
            {"path", daemon.path},
            {"argv", daemon.argv},
            {"envp", daemon.envp},
            {"readiness",
             {{"socket", daemon.readiness_socket},
              {"awaited", daemon.readiness_awaited},
              {"limit_seconds", daemon.readiness_limit_seconds}}},
            {"stop",
             {{"termination_signal", daemon.stop.termination_signal},
              {"probe", daemon.stop.probe},
              {"bound", daemon.stop.bound},
              {"kill", daemon.stop.kill}}}};
}

}  // namespace

std::string Plan_printer::quoted(const std::vector<std::string>& words)
{
    std::string line;
    for (const std::string& word : words) {
        if (!line.empty()) {
            line += ' ';
        }
        if (!word.empty() && word.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                                    "_-+=:,./@%") == std::string::npos) {
            line += word;
            continue;
        }
        line += '\'';
        for (const char letter : word) {
            line += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
        }
        line += '\'';
    }
    return line;
}

void Plan_printer::print_text(const Launch_plan& plan, std::ostream& out)
{
    out << "kind " << static_cast<int>(plan.kind) << " (" << plan.kind_name << ") on " << plan.hostname
        << " (partition " << static_cast<int>(plan.partition) << ")";
    if (!plan.root.empty()) {
        out << ", files below " << plan.root;
    }
    out << '\n' << "strategy " << plan.strategy << ": prepare " << outcome(plan.prepared);
    if (plan.prepared) {
        out << ", start " << outcome(plan.started);
    }
    out << '\n';
    for (std::size_t index = 0; index < plan.daemons.size(); ++index) {
        print_daemon(out, index + 1, plan.daemons[index]);
    }
    if (plan.daemons.empty()) {
        out << "\nno daemon is started\n";
    }
    print_reads(out, plan.reads);
    print_list(out, "sockets bound", plan.bound_sockets, true);
    print_list(out, "paths removed", plan.removed_paths, true);
    print_list(out, "files written", plan.written_files, true);
    print_list(out, "commands run when stopping", plan.commands, true);
    print_signals(out, plan.stop_signals);
    print_list(out, "console lines", plan.console, false);
    print_list(out, "notes", plan.notes, false);
}

std::string Plan_printer::json(const Launch_plan& plan)
{
    nlohmann::json daemons = nlohmann::json::array();
    for (const Planned_daemon& daemon : plan.daemons) {
        daemons.push_back(json_of(daemon));
    }
    nlohmann::json reads = nlohmann::json::array();
    for (const Planned_read& read : plan.reads) {
        reads.push_back({{"path", read.path}, {"kind", read.kind}, {"found", read.found}, {"entries", read.entries}});
    }
    nlohmann::json signals = nlohmann::json::array();
    for (const Planned_signal& sent : plan.stop_signals) {
        signals.push_back({{"pid", sent.pid}, {"signal", sent.signal}, {"delivered", sent.delivered}});
    }
    const nlohmann::json document = {{"kind", plan.kind},
                                     {"kind_name", plan.kind_name},
                                     {"hostname", plan.hostname},
                                     {"partition", plan.partition},
                                     {"root", plan.root},
                                     {"strategy", plan.strategy},
                                     {"prepared", plan.prepared},
                                     {"started", plan.started},
                                     {"daemons", daemons},
                                     {"reads", reads},
                                     {"bound_sockets", plan.bound_sockets},
                                     {"removed_paths", plan.removed_paths},
                                     {"written_files", plan.written_files},
                                     {"commands", plan.commands},
                                     {"stop_signals", signals},
                                     {"console", plan.console},
                                     {"notes", plan.notes}};
    return document.dump(2);
}

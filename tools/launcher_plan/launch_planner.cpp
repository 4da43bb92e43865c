// SPDX-License-Identifier: Apache-2.0
#include "tools/launcher_plan/launch_planner.hpp"

#include <iostream>
#include <memory>
#include <sstream>
#include <utility>

#include "dlt_activation/dlt_flag_file.hpp"
#include "launcher/launcher_kinds.hpp"
#include "strategies/launcher_strategy_com_complex.hpp"
#include "strategies/launcher_strategy_com_daemon.hpp"
#include "strategies/launcher_strategy_com_simple.hpp"
#include "strategies/launcher_strategy_dlt.hpp"
#include "strategies/launcher_strategy_phm.hpp"
#include "strategies/launcher_strategy_udpnm.hpp"

namespace {

// Lines of the process machinery: they name planned pids and the planned readiness.
const char* const machinery_prefixes[] = {"LAUNCHER PROCESS PATH: ", "LAUNCHER Process_factory",
                                          "Process_factory:create process", "Launcher Process_factory",
                                          "[Daemon_handler", "Daemon_handler: "};

// The line the log strategy writes when the console attribute can't be opened; the
// recording system always lets that open fail, so that nothing is written.
const std::string quiet_failure_prefix{"DLT_Launcher: Cannot read virtual console file"};

const Stop_method probe_by_kill{15, "signal 9 (SIGKILL) right after SIGTERM, then every 100 ms until refused",
                                "none", "the probe itself is SIGKILL"};

// Sends everything written to standard error to a buffer while it lives.
class Captured_errors {
public:
    Captured_errors() : saved(std::cerr.rdbuf(buffer.rdbuf())) {}
    ~Captured_errors() { std::cerr.rdbuf(saved); }
    Captured_errors(const Captured_errors&) = delete;
    Captured_errors& operator=(const Captured_errors&) = delete;

    std::string take()
    {
        std::string text = buffer.str();
        buffer.str("");
        return text;
    }

private:
    std::ostringstream buffer;
    std::streambuf* saved;
};

bool starts_with(const std::string& text, const std::string& prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

std::string kind_name(std::uint8_t kind)
{
    const auto found = launcher_type_names.find(kind);
    if (found == launcher_type_names.end()) {
        return "";
    }
    std::string name = found->second;
    while (!name.empty() && name.back() == ' ') {
        name.pop_back();
    }
    return name;
}

}  // namespace

Launch_planner::Launch_planner(Recording_system_call_api& recording_api, Directory_reader_interface& reader,
                               std::string root, Launch_plan& launch_plan)
    : api(recording_api), plan(launch_plan), directory_reader(reader, root, launch_plan),
      address_source(root, launch_plan)
{
    plan.root = std::move(root);
}

bool Launch_planner::make(const Launcher_configuration& configuration)
{
    plan.kind = configuration.type;
    plan.kind_name = kind_name(configuration.type);
    plan.partition = configuration.partition;
    plan.hostname = api.get_hostname();
    std::unique_ptr<Launcher_strategy_interface> strategy;
    {
        Captured_errors errors;
        strategy.reset(Launcher_strategy_interface::createLauncherStrategy(configuration));
        plan.console = strategy_lines(errors.take());
    }
    if (!strategy) {
        return false;
    }
    describe(*strategy);
    note_activation(configuration);
    run(strategy.release());
    complete_daemons();
    return true;
}

void Launch_planner::describe(Launcher_strategy_interface& strategy)
{
    if (auto* com = dynamic_cast<Launcher_strategy_COM*>(&strategy)) {
        com->set_directory_reader(&directory_reader);
    }
    if (auto* simple = dynamic_cast<Launcher_strategy_COM_simple*>(&strategy)) {
        plan.strategy = "Launcher_strategy_COM_simple";
        simple->set_address_source(&address_source);
        stop_method = {15, "signal 9 (SIGKILL) right after SIGTERM, then every 100 ms until refused and reaped",
                       "none", "the probe itself is SIGKILL"};
    } else if (dynamic_cast<Launcher_strategy_COM_complex*>(&strategy) != nullptr) {
        plan.strategy = "Launcher_strategy_COM_complex";
        stop_method = {15, "reaped, checked every 100 ms",
                       std::to_string((Launcher_strategy_COM_complex::termination_checks - 1) / 10) + " s",
                       "to each daemon still running at the bound, or whose SIGTERM failed"};
    } else if (dynamic_cast<Launcher_strategy_COM_daemon*>(&strategy) != nullptr) {
        plan.strategy = "Launcher_strategy_COM_daemon";
        readiness_limit = Launcher_strategy_COM_daemon::readiness_seconds;
        stop_method = {15, "signal 9 (SIGKILL) right after SIGTERM, then every 100 ms until refused and reaped",
                       "none", "the probe itself is SIGKILL"};
    } else if (auto* dlt = dynamic_cast<Launcher_strategy_DLT*>(&strategy)) {
        plan.strategy = "Launcher_strategy_DLT";
        dlt->set_directory_reader(&directory_reader);
        readiness_limit = Launcher_strategy_DLT::readiness_seconds;
        stop_method = probe_by_kill;
    } else if (dynamic_cast<Launcher_strategy_PHM*>(&strategy) != nullptr) {
        plan.strategy = "Launcher_strategy_PHM";
        readiness_limit = Launcher_strategy_PHM::readiness_seconds;
        stop_method = {15, "signal 0 every 100 ms until refused", "none: as long as the daemon takes", "never"};
    } else if (auto* udpnm = dynamic_cast<Launcher_strategy_UDPNM*>(&strategy)) {
        plan.strategy = "Launcher_strategy_UDPNM";
        udpnm->set_directory_reader(&directory_reader);
        readiness_limit = Launcher_strategy_UDPNM::readiness_seconds;
        stop_method = probe_by_kill;
    }
}

// One pass as the launcher runs it: prepare, start only after a successful prepare, stop
// in any case, then the strategy is deleted. Only the lines up to the end of start count:
// those of the stop speak of daemons that obeyed at once, which is a guess.
void Launch_planner::run(Launcher_strategy_interface* strategy)
{
    std::unique_ptr<Launcher_strategy_interface> owned(strategy);
    Captured_errors errors;
    plan.prepared = owned->prepare(&api, nullptr);
    if (plan.prepared) {
        plan.started = owned->start();
    }
    const std::string pass_lines = errors.take();
    owned->stop();
    owned.reset();
    settle_console(pass_lines);
}

void Launch_planner::note_activation(const Launcher_configuration& configuration)
{
    if (configuration.type != DLT) {
        return;
    }
    struct stat marker {};
    if (api.stat(dlt_flag_file_path().c_str(), &marker) == 0) {
        plan.notes.push_back("DLT logging is activated by the marker file " + dlt_flag_file_path() +
                             " while the diagnostic data distribution service is unreachable");
    } else {
        plan.notes.push_back("no marker file " + dlt_flag_file_path() +
                             ": the daemons start once the diagnostic data distribution service activates DLT logging");
    }
}

void Launch_planner::complete_daemons()
{
    for (Planned_daemon& daemon : plan.daemons) {
        daemon.stop = stop_method;
        if (daemon.readiness_awaited) {
            daemon.readiness_limit_seconds = readiness_limit;
        }
    }
}

void Launch_planner::settle_console(const std::string& captured)
{
    bool quiet_file_found = false;
    for (const Planned_read& read : plan.reads) {
        for (const std::string& written : plan.written_files) {
            quiet_file_found = quiet_file_found || (read.found && read.path == written);
        }
    }
    for (std::string& line : strategy_lines(captured)) {
        if (quiet_file_found && starts_with(line, quiet_failure_prefix)) {
            continue;
        }
        plan.console.push_back(std::move(line));
    }
}

std::vector<std::string> Launch_planner::strategy_lines(const std::string& captured)
{
    std::vector<std::string> lines;
    std::istringstream text(captured);
    std::string line;
    while (std::getline(text, line)) {
        bool machinery = false;
        for (const char* prefix : machinery_prefixes) {
            machinery = machinery || starts_with(line, prefix);
        }
        if (!machinery) {
            lines.push_back(line);
        }
    }
    return lines;
}

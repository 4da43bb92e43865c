// SPDX-License-Identifier: Apache-2.0
#include "launcher/launcher_lifecycle.hpp"

#include "ara/log/logging.hpp"
#include "dlt_activation/dlt_flags.hpp"
#include "launcher/console.hpp"
#include "launcher/em_handler.hpp"
#include "launcher/launcher.hpp"
#include "launcher/launcher_flags.hpp"
#include "launcher/launcher_kinds.hpp"
#include "launcher/partition_detection.hpp"
#include "launcher/signal_handler.hpp"
#include "launcher/sleep_ms.hpp"

namespace {

constexpr int poll_period_ms = 100;
// Quick retries of a failed DLT start before the launcher waits for the next flag change.
constexpr int dlt_quick_retries = 3;
// The first DLT flag poll of a run phase consults the marker file at once.
constexpr std::uint32_t first_poll_counter = 50;

const char* exists_text(bool exists, const char* yes, const char* no)
{
    return exists ? yes : no;
}

}  // namespace

Launcher_lifecycle::Launcher_lifecycle(System_call_api_interface& system_call,
                                       IDLTActivationFlagObserver& flag_observer, Collaborators used_collaborators)
    : api(system_call), observer(flag_observer), collaborators(used_collaborators)
{
}

Launcher_lifecycle::~Launcher_lifecycle()
{
    delete em_handler;
    delete launcher;
    delete strategy;
}

int Launcher_lifecycle::run(int argc, char** argv)
{
    stop_flag.store(false);
    child_stop_flag.store(false);
    termination_flag.store(false);
    dlt_pm_flag.store(true);
    flag_updated.store(false);
    console_line("Launcher: main_launcher start : flag_updated=false ");

    std::uint8_t type = launcher_type_unset;
    if (!check_argument(argc, argv, type)) {
        failure = 1;
    }
    configuration.type = type;
    if (!init_logging(type, app_name)) {
        failure = 1;
    }
    if (failure == 0 && configure(configuration, type, api) != 0) {
        console_line(app_name + "Launcher: Configuration failed. Terminating");
        return 1;
    }
    shutdown_dtc(configuration.type);
    if (is_dlt()) {
        init_dlt_launcher();
    }
    restart_loop();
    terminate();
    return failure;
}

void Launcher_lifecycle::init_dlt_launcher()
{
    api.startup_runtime();
    dlt_pm_flag.store(false);
    flag_updated.store(false);
    console_line("Launcher: init_dlt_launcher : flag_updated=false ");
    console_line("DLT Launcher waiting for DSA Diagnostic Data Distribution to find");
    // The service usually appears later; until then the marker file stands in for it.
    observer.startFindService();
    if (!observer.getFindServiceHandle()) {
        console_line("DLT launcher : Handle : NOT connected to DSA Diagnostic Data Distribution");
    }
    if (!observer.getProxy()) {
        console_line("DLT launcher : Proxy : NOT connected to DSA Diagnostic Data Distribution");
    }
    start_dtc_service();
    send_dtc(dlt_pm_flag.load());
}

void Launcher_lifecycle::start_dtc_service()
{
    set_dtc_service(collaborators.create_dtc_service(dtc_instance_id, [] { send_dtc(dlt_pm_flag.load()); }));
    ara::log::LogDebug() << "DLT-Launcher: start DTC";
    const std::shared_ptr<DTCService> service = get_dtc_service();
    if (!service) {
        ara::log::LogError() << "DLT-Launcher: start DTC has failed";
        console_line("DLT-Launcher: start DTC has failed");
        failure = 1;
        return;
    }
    ara::log::LogDebug() << "DLT-Launcher: DTC created;";
    console_line("DLT-Launcher: Created DLT DTC object");
    if (!service->Startup()) {
        // The daemons matter more than their report; the launcher goes on without it.
        ara::log::LogError() << "DLT-Launcher: DTC not started;";
        console_line("DLT-Launcher: Start DLT DTC object failed");
    }
}

void Launcher_lifecycle::restart_loop()
{
    for (;;) {
        bool daemons_running = false;
        if (!begin_pass(daemons_running)) {
            return;
        }
        launcher_main_loop(daemons_running);
        if (!is_dlt()) {
            // stop_flag is still set, so the next pass ends the process: systemd restarts
            // these launchers, they do not restart their daemons themselves.
            retry_counter = 0;
            continue;
        }
        if (child_stop_flag.load()) {
            console_line(app_name + "Launcher: Continue...");
            stop_flag.store(false);
            child_stop_flag.store(false);
        }
    }
}

bool Launcher_lifecycle::begin_pass(bool& daemons_running)
{
    if (stop_flag.load()) {
        return false;
    }
    if (failure != 0 || termination_flag.load()) {
        shutdown_launcher("TERMINATION");
        return false;
    }
    write_restart_line();
    em_handler = new EM_handler(&api);
    launcher = new Launcher(em_handler, &api);
    flag_updated.store(false);
    console_line("Launcher: main_launcher while start : flag_updated=false ");

    if (is_dlt() && !dlt_pm_flag.load()) {
        register_without_strategy();
        daemons_running = false;
    } else if (prepare_and_start()) {
        daemons_running = true;
        // The quick retries are for consecutive failures: a success ends the series.
        retry_counter = 0;
    } else if (!handle_failed_start()) {
        return false;
    }
    if (failure != 0) {
        shutdown_launcher("EXIT_FAILURE");
        return false;
    }
    return true;
}

void Launcher_lifecycle::write_restart_line() const
{
    console_line(app_name + "Launcher: Restart Launcher..." +
                 exists_text(em_handler != nullptr, " HandlerExists ", " noHandler ") +
                 exists_text(launcher != nullptr, " LauncherExists ", " noLauncher ") +
                 exists_text(strategy != nullptr, " StrategyExists ", " noStrategy "));
}

void Launcher_lifecycle::register_without_strategy()
{
    if (!em_handler->register_signal_handler(signal_handler)) {
        console_line(app_name + " Register to signal callback failed ...");
        failure = 1;
        stop_flag.store(true);
    }
    em_handler->report_ready();
}

bool Launcher_lifecycle::prepare_and_start()
{
    if (!launcher->register_signals(signal_handler)) {
        // No line end: the next message completes the line.
        write_error_text("Launcher: Initialization failed. Terminating");
        failure = 1;
    } else if (failure == 0) {
        strategy = collaborators.create_strategy(configuration);
        if (!launcher->prepare(strategy)) {
            console_line("Launcher: Preparation failed. Terminating");
            failure = 1;
        }
    }
    if (failure == 0 && !launcher->start()) {
        console_line("Launcher: Starting failed. Terminating");
        launcher->stop();
        failure = 1;
    }
    console_line(app_name + "Launcher: Starting Launcher..." + (failure != 0 ? " EXIT_FAILURE " : " EXIT_SUCCESS "));
    return failure == 0;
}

bool Launcher_lifecycle::handle_failed_start()
{
    if (strategy == nullptr) {
        stop_flag.store(true);
        shutdown_launcher("FAILURE or no Strategy");
        return false;
    }
    if (!is_dlt()) {
        shutdown_launcher("EXIT_FAILURE");
        return false;
    }
    retry_dlt_start();
    return true;
}

void Launcher_lifecycle::retry_dlt_start()
{
    if (retry_counter < dlt_quick_retries) {
        ++retry_counter;
        console_line(app_name + " DLT Launcher start procs had failed, but retry soon ...");
        // Ends the coming run phase at once, as a child's death would.
        stop_flag.store(true);
        child_stop_flag.store(true);
    } else {
        console_line(app_name + " DLT Launcher start procs had failed, but retry if dlt flag changes ...");
        if (child_stop_flag.load()) {
            // The children of the failed start must not end the wait for a flag change.
            console_line(app_name + "Launcher: Ignore child stop signal ...");
            stop_flag.store(false);
            child_stop_flag.store(false);
        }
        retry_counter = 0;
    }
    failure = 0;
}

void Launcher_lifecycle::launcher_main_loop(bool daemons_running)
{
    const std::string name = launcher_type_names[configuration.type];
    poll_counter = first_poll_counter;
    console_line(name + "Launcher: Running...");
    console_line(std::string("Launcher: app= ") + (stop_flag.load() ? "Stop" : "NoStop") +
                 " Update needed = " + (flag_updated.load() ? "Update" : "NoUpdate") +
                 " Termination = " + (termination_flag.load() ? "Termination" : "NoTermination"));
    if (is_dlt() && !daemons_running) {
        console_line(name + "Launcher: start without DLT LOG...");
        poll_until_pass_ends();
    } else {
        poll_until_pass_ends();
        launcher->stop();
        sleep_ms(poll_period_ms);
    }
    flag_updated.store(false);
    console_line("Launcher: launcher_main_loop end : flag_updated=false ");
    console_line(name + "Launcher: Shutting down...");
    shutdown_launcher("STOP");
}

void Launcher_lifecycle::poll_until_pass_ends()
{
    while (!stop_flag.load() && !termination_flag.load() && !flag_updated.load()) {
        collaborators.poll_dlt_flag(configuration.type, poll_counter, observer);
        sleep_ms(poll_period_ms);
    }
}

void Launcher_lifecycle::shutdown_launcher(const std::string& reason)
{
    console_line(app_name + " Launcher: Shutting down... " + reason);
    delete em_handler;
    em_handler = nullptr;
    delete launcher;
    launcher = nullptr;
    delete strategy;
    strategy = nullptr;
    sleep_ms(poll_period_ms);
}

void Launcher_lifecycle::terminate()
{
    if (is_dlt()) {
        if (unsubscribe_data_values_hash(observer)) {
            console_line("DTL launcher : Unsubscribe from DSA notification");
        }
        observer.StopConnectAsynchronously();
        shutdown_dtc(configuration.type);
        console_line("DTL launcher : Stop COM ");
        api.shutdown_runtime();
    }
    console_line(app_name + "Launcher: Terminating...");
    set_dtc_service(nullptr);
}

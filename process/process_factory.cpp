// SPDX-License-Identifier: Apache-2.0
#include "process/process_factory.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "ara/log/logging.hpp"
#include "common/silent_trace.hpp"
#include "support/error_line.hpp"

namespace {

constexpr int exec_failure_status = 127;

void console_line(const std::string& text)
{
    // One write per line, so that lines of the waiting threads do not interleave.
    write_error_line(text);
}

// Async-signal-safe: writes prefix, value in decimal and a line end without allocating.
void write_value_line(const std::string& prefix, long value) noexcept
{
    char digits[24];
    std::size_t start = sizeof(digits);
    digits[--start] = '\n';
    const bool negative = value < 0;
    unsigned long magnitude = negative ? 0UL - static_cast<unsigned long>(value) : static_cast<unsigned long>(value);
    do {
        digits[--start] = static_cast<char>('0' + magnitude % 10);
        magnitude /= 10;
    } while (magnitude != 0);
    if (negative) {
        digits[--start] = '-';
    }
    write_error_bytes(prefix.data(), prefix.size());
    write_error_bytes(digits + start, sizeof(digits) - start);
}

// Async-signal-safe: the daemon must start with default dispositions, an empty signal mask
// and none of the launcher's descriptors, whatever the launcher's threads had set up.
// One past the highest descriptor worth marking when the kernel cannot mark a range at once;
// read before fork, since the child may not call getrlimit's non-signal-safe relatives.
int descriptor_end() noexcept
{
    constexpr rlim_t most = 65536;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur > most) {
        return static_cast<int>(most);
    }
    return static_cast<int>(limit.rlim_cur);
}

void reset_process_state_for_exec(const struct sigaction& default_action, const sigset_t& empty_mask,
                                  int end) noexcept
{
    for (int signal_number = 1; signal_number < NSIG; ++signal_number) {
        // SIGKILL, SIGSTOP and the C library's internal signals refuse; nothing to do about them.
        (void)::sigaction(signal_number, &default_action, nullptr);
    }
    (void)::sigprocmask(SIG_SETMASK, &empty_mask, nullptr);
    // Descriptors opened without close-on-exec by libraries (log FIFOs and the like) would
    // otherwise leak into the daemon. Kernels before 5.11 refuse the flag; there each
    // descriptor is marked on its own.
    if (::close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC) == 0) {
        return;
    }
    for (int descriptor = STDERR_FILENO + 1; descriptor < end; ++descriptor) {
        (void)::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    }
}

}  // namespace

Process_factory::Process_factory(System_call_api_interface* system_call_api) : system_call(system_call_api)
{
    silent_trace("LAUNCHER process_factory : constructor called");
}

Process_factory::~Process_factory()
{
    silent_trace("LAUNCHER process_factory : destructor called");
    if (waitpid_thread != nullptr) {
        if (waitpid_thread->joinable()) {
            waitpid_thread->join();
        }
        silent_trace("LAUNCHER process_factory : destructor called : delete waitpid_thread");
        delete waitpid_thread;
        waitpid_thread = nullptr;
    }
}

int Process_factory::create_process(const std::string& path, std::vector<std::string>& arguments,
                                    const std::vector<std::string>& environment)
{
    if (system_call == nullptr) {
        return -1;
    }
    silent_trace("Process_factory:create process ");
    if (arguments.empty()) {
        arguments.push_back(path);
    }
    console_line("LAUNCHER PROCESS PATH: " + path);
    collect_vectors(arguments, environment);
    const Child_preparation preparation = prepare_child();

    // Until the child has reset its dispositions, a signal sent to it would run the
    // launcher's handler there and be lost to the daemon; blocked, it waits for the reset.
    sigset_t all_signals;
    sigset_t caller_mask;
    (void)sigfillset(&all_signals);
    (void)::pthread_sigmask(SIG_BLOCK, &all_signals, &caller_mask);
    system_call->announce_child(path.c_str(), argv.data(), envp.data());
    child_pid = system_call->fork();
    if (child_pid == 0) {
        return run_child(path, preparation, caller_mask);
    }
    (void)::pthread_sigmask(SIG_SETMASK, &caller_mask, nullptr);
    const std::string pid_text = std::to_string(child_pid);
    console_line("LAUNCHER Process_factory: fork done childPID= " + pid_text);
    int result = -1;
    if (child_pid > 0) {
        result = run_parent();
    } else {
        console_line("LAUNCHER ERROR: Process_factory: cannot fork new process and returning " + pid_text);
    }
    console_line("Process_factory:create process Fork PID= " + pid_text + "FINAL");
    return result;
}

bool Process_factory::is_running()
{
    return running;
}

void Process_factory::collect_vectors(std::vector<std::string>& arguments, const std::vector<std::string>& environment)
{
    std::string command_line;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
        command_line += argument + ' ';
    }
    silent_trace("LAUNCHER COMMANDLINE ARG: " + command_line);
    for (const std::string& variable : environment) {
        envp.push_back(const_cast<char*>(variable.c_str()));
    }
    argv.push_back(nullptr);
    envp.push_back(nullptr);
}

Process_factory::Child_preparation Process_factory::prepare_child()
{
    Child_preparation preparation{};
    preparation.parent_pid = ::getpid();
    preparation.descriptor_end = descriptor_end();
    preparation.fork_done_line = "LAUNCHER Process_factory: fork done childPID= 0\n";
    preparation.execve_failure_line = "LAUNCHER Process_factory: execve returns FAILURE -1\n";
    preparation.execve_result_prefix = "LAUNCHER Process_factory: execve returns good procid ";
    preparation.final_line = "Process_factory:create process Fork PID= 0FINAL\n";
    preparation.default_action.sa_handler = SIG_DFL;
    sigemptyset(&preparation.default_action.sa_mask);
    sigemptyset(&preparation.empty_mask);
    return preparation;
}

// Runs in the child of fork. A substitute fork may return 0 without a new process (unit tests);
// then the pid is still the parent's and the child's exit would end the caller, so only a
// really forked child resets its state and ends with _exit.
int Process_factory::run_child(const std::string& path, const Child_preparation& preparation,
                               const sigset_t& caller_mask)
{
    const bool forked = ::getpid() != preparation.parent_pid;
    if (!forked) {
        (void)::pthread_sigmask(SIG_SETMASK, &caller_mask, nullptr);
    }
    write_error_bytes(preparation.fork_done_line.data(), preparation.fork_done_line.size());
    if (forked) {
        reset_process_state_for_exec(preparation.default_action, preparation.empty_mask, preparation.descriptor_end);
    }
    const int result = system_call->execve(path.c_str(), argv.data(), envp.data());
    if (result == -1) {
        write_error_bytes(preparation.execve_failure_line.data(), preparation.execve_failure_line.size());
    } else {
        write_value_line(preparation.execve_result_prefix, result);
    }
    write_error_bytes(preparation.final_line.data(), preparation.final_line.size());
    if (forked) {
        // Returning would run a second launcher on the same daemons.
        ::_exit(exec_failure_status);
    }
    return -1;
}

int Process_factory::run_parent()
{
    console_line("LAUNCHER Process_factory:create process Fork PID= " + std::to_string(child_pid));
    running = true;
    waitpid_thread = system_call->create_thread(&Process_factory::wait_for_child, this);
    return child_pid;
}

void* Process_factory::wait_for_child(void* factory)
{
    auto* self = static_cast<Process_factory*>(factory);
    ara::log::LogDebug() << "GLOBAL process_factory ";
    console_line("Launcher Process_factory: waitpid for waiting now called for child " +
                 std::to_string(self->child_pid));
    pid_t result = -1;
    do {
        // A signal delivered to this thread is not the end of the child.
        errno = 0;
        result = self->system_call->waitpid(self->child_pid, &self->status, 0);
    } while (result == -1 && errno == EINTR);
    self->report_child_end(result);
    return nullptr;
}

void Process_factory::report_child_end(pid_t result)
{
    const std::string pid_text = std::to_string(child_pid);
    if (result != child_pid) {
        status = -1;
    }
    if (result == child_pid && (status & 0x7f) == 0) {
        const unsigned int exit_code = (static_cast<unsigned int>(status) >> 8) & 0xffU;
        console_line("Launcher Process_factory: child process " + pid_text +
                     " terminated. Exit code: " + std::to_string(exit_code));
    } else {
        console_line("Launcher Process_factory: child process " + pid_text +
                     " terminated. Status: " + std::to_string(status));
    }
    console_line("Launcher Process_factory: waitpid called for child " + pid_text);
    running = false;
}

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_PROCESS_PROCESS_FACTORY_HPP
#define STRATA_PROCESS_PROCESS_FACTORY_HPP

#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "process/process_factory_interface.hpp"
#include "process/system_call_api_interface.hpp"

// Starts one child and reaps it on a waiting thread of its own.
class Process_factory : public Process_factory_interface {
public:
    explicit Process_factory(System_call_api_interface* system_call);
    ~Process_factory() override;
    Process_factory(const Process_factory&) = delete;
    Process_factory& operator=(const Process_factory&) = delete;

    int create_process(const std::string& path, std::vector<std::string>& arguments,
                       const std::vector<std::string>& environment) override;
    bool is_running() override;

private:
    // Everything the child needs between fork and execve. It is made before fork because
    // the child of a threaded process may only make async-signal-safe calls.
    struct Child_preparation {
        pid_t parent_pid;
        int descriptor_end;
        std::string fork_done_line;
        std::string execve_failure_line;
        std::string execve_result_prefix;
        std::string final_line;
        struct sigaction default_action;
        sigset_t empty_mask;
    };

    void collect_vectors(std::vector<std::string>& arguments, const std::vector<std::string>& environment);
    static Child_preparation prepare_child();
    int run_child(const std::string& path, const Child_preparation& preparation, const sigset_t& caller_mask);
    int run_parent();
    static void* wait_for_child(void* factory);
    void report_child_end(pid_t result);

    System_call_api_interface* system_call;
    pid_t child_pid{-1};
    std::atomic<bool> running{false};
    std::thread* waitpid_thread{nullptr};
    int status{-1};
    std::vector<char*> argv;
    std::vector<char*> envp;
};

#endif

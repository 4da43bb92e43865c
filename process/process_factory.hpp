#ifndef STRATA_PROCESS_PROCESS_FACTORY_HPP
#define STRATA_PROCESS_PROCESS_FACTORY_HPP

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
    static void* wait_for_child(void* factory);

    System_call_api_interface* system_call;
    pid_t child_pid{-1};
    std::atomic<bool> running{false};
    std::thread* waitpid_thread{nullptr};
    int status{-1};
    std::vector<char*> argv;
    std::vector<char*> envp;
};

#endif

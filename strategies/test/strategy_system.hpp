#ifndef STRATA_STRATEGIES_TEST_STRATEGY_SYSTEM_HPP
#define STRATA_STRATEGIES_TEST_STRATEGY_SYSTEM_HPP

#include <cerrno>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "strategies/directory_reader_interface.hpp"
#include "tests/mocks/mock_system_call_api.hpp"

// The system as the strategies see it. Forks hand out pids from 4101 unless a test queued
// other results (0: the child's side, whose execve is recorded; -1: a failed fork); each
// child ends at once, every wait hears READY=1, and signals find nobody unless a test says so.
class Strategy_system : public testing::NiceMock<Mock_system_call_api> {
public:
    struct Exec {
        std::string path;
        std::vector<std::string> argv;
        std::vector<std::string> envp;
    };

    Strategy_system()
    {
        using testing::_;
        ON_CALL(*this, fork()).WillByDefault([this] {
            const pid_t result = fork_results.empty() ? next_pid++ : fork_results.front();
            if (!fork_results.empty()) {
                fork_results.pop_front();
            }
            return result;
        });
        ON_CALL(*this, waitpid(_, _, _)).WillByDefault([](pid_t pid, int* status, int) { return *status = 0, pid; });
        ON_CALL(*this, execve(_, _, _)).WillByDefault([this](const char* path, char* const* argv, char* const* envp) {
            execs.push_back({path, strings(argv), strings(envp)});
            return errno = ENOENT, -1;
        });
        // Not open in this process: the handler's poll and close find nothing to do with it.
        ON_CALL(*this, socket(_, _, _)).WillByDefault(testing::Return(900000));
        ON_CALL(*this, recvmsg(_, _, _)).WillByDefault([](int, msghdr* message, int) -> ssize_t {
            std::memcpy(message->msg_iov[0].iov_base, "READY=1", 7);
            return 7;
        });
        ON_CALL(*this, kill(_, _)).WillByDefault([](pid_t, int) { return errno = ESRCH, -1; });
        ON_CALL(*this, stat(_, _)).WillByDefault(testing::Return(-1));
        ON_CALL(*this, create_thread(_, _)).WillByDefault([](void* (*function)(void*), void* argument) {
            return new std::thread(function, argument);
        });
        ON_CALL(*this, get_quiet_file_path()).WillByDefault(testing::Return("/nonexistent/quiet"));
    }

    std::deque<pid_t> fork_results;
    std::vector<Exec> execs;

private:
    static std::vector<std::string> strings(char* const* list)
    {
        std::vector<std::string> result;
        for (; *list != nullptr; ++list) {
            result.emplace_back(*list);
        }
        return result;
    }
    pid_t next_pid{4101};
};

// Directories that exist only in the test, with their entries in a chosen order.
class Fake_directory_reader : public Directory_reader_interface {
public:
    bool read_entry_names(const std::string& directory, std::vector<std::string>& names) override
    {
        const auto found = directories.find(directory);
        if (found != directories.end()) {
            names.insert(names.end(), found->second.begin(), found->second.end());
        }
        return found != directories.end();
    }
    std::map<std::string, std::vector<std::string>> directories;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef STRATA_TESTS_MOCKS_MOCK_SYSTEM_CALL_API_HPP
#define STRATA_TESTS_MOCKS_MOCK_SYSTEM_CALL_API_HPP

#include <gmock/gmock.h>

#include <string>
#include <thread>
#include <vector>

#include "process/system_call_api_interface.hpp"

class Mock_system_call_api : public System_call_api_interface {
public:
    MOCK_METHOD(int, stat, (const char* path, struct stat* buffer), (override));
    MOCK_METHOD(pid_t, fork, (), (override));
    MOCK_METHOD(pid_t, waitpid, (pid_t pid, int* status, int options), (override));
    MOCK_METHOD(int, execve, (const char* path, char* const argv[], char* const envp[]), (override));
    MOCK_METHOD(int, remove, (const char* path), (override));
    MOCK_METHOD(int, socket, (int domain, int type, int protocol), (override));
    MOCK_METHOD(int, unlink, (const char* path), (override));
    MOCK_METHOD(int, bind, (int descriptor, const sockaddr* address, socklen_t length), (override));
    MOCK_METHOD(ssize_t, recvmsg, (int descriptor, msghdr* message, int flags), (override));
    MOCK_METHOD(int, kill, (pid_t pid, int signal), (override));
    MOCK_METHOD(int, sigaction, (int signal, const struct sigaction* action, struct sigaction* old_action), (override));
    MOCK_METHOD(int, sd_notify, (int unset_environment, const char* state), (override));
    MOCK_METHOD(int, open, (const char* path, int flags), (override));
    MOCK_METHOD(int, close, (int descriptor), (override));
    MOCK_METHOD(std::thread*, create_thread, (void* (*function)(void*), void* argument), (override));
    MOCK_METHOD(void, startup_runtime, (), (override));
    MOCK_METHOD(void, shutdown_runtime, (), (override));
    MOCK_METHOD(int, system, (const std::string& command), (override));
    MOCK_METHOD(std::string, get_quiet_file_path, (), (override));
    MOCK_METHOD(std::string, get_hostname, (), (override));
};

// What a real create_thread does, for mocks whose callers must really run the thread.
inline std::thread* real_thread(void* (*function)(void*), void* argument)
{
    return new std::thread(function, argument);
}

// The strings of a null-terminated argv or envp.
inline std::vector<std::string> argv_strings(char* const* list)
{
    std::vector<std::string> strings;
    for (; *list != nullptr; ++list) {
        strings.emplace_back(*list);
    }
    return strings;
}

#endif

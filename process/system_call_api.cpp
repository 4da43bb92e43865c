// SPDX-License-Identifier: Apache-2.0
#include "process/system_call_api.hpp"

#include <fcntl.h>
#include <sys/wait.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "vela/com/runtime/component_singleton.hpp"

int System_call_api::stat(const char* path, struct stat* buffer)
{
    return ::stat(path, buffer);
}

pid_t System_call_api::fork()
{
    return ::fork();
}

pid_t System_call_api::waitpid(pid_t pid, int* status, int options)
{
    return ::waitpid(pid, status, options);
}

int System_call_api::execve(const char* path, char* const argv[], char* const envp[])
{
    return ::execve(path, argv, envp);
}

int System_call_api::remove(const char* path)
{
    return std::remove(path);
}

int System_call_api::socket(int domain, int type, int protocol)
{
    return ::socket(domain, type, protocol);
}

int System_call_api::unlink(const char* path)
{
    return ::unlink(path);
}

int System_call_api::bind(int descriptor, const sockaddr* address, socklen_t length)
{
    return ::bind(descriptor, address, length);
}

ssize_t System_call_api::recvmsg(int descriptor, msghdr* message, int flags)
{
    return ::recvmsg(descriptor, message, flags);
}

int System_call_api::kill(pid_t pid, int signal)
{
    if (pid <= 0) {
        errno = EINVAL;
        return -1;
    }
    return ::kill(pid, signal);
}

int System_call_api::sigaction(int signal, const struct sigaction* action, struct sigaction* old_action)
{
    return ::sigaction(signal, action, old_action);
}

int System_call_api::sd_notify(int unset_environment, const char* state)
{
    return ::sd_notify(unset_environment, state);
}

int System_call_api::open(const char* path, int flags)
{
    return ::open(path, flags);
}

int System_call_api::close(int descriptor)
{
    return ::close(descriptor);
}

std::thread* System_call_api::create_thread(void* (*function)(void*), void* argument)
{
    return new std::thread([function, argument] { (void)function(argument); });
}

void System_call_api::startup_runtime()
{
    vela::com::runtime::Component_singleton::startup(false, "");
}

void System_call_api::shutdown_runtime()
{
    vela::com::runtime::Component_singleton::shutdown();
}

int System_call_api::system(const std::string& command)
{
    return std::system(command.c_str());
}

std::string System_call_api::get_quiet_file_path()
{
    return "/sys/devices/virtual/tty/hvc1/quiet";
}

std::string System_call_api::get_hostname()
{
    char name[65] = {};
    if (::gethostname(name, sizeof(name)) != 0) {
        return "";
    }
    name[sizeof(name) - 1] = '\0';
    return std::string(name);
}

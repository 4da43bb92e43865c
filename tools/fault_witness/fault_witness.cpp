// SPDX-License-Identifier: Apache-2.0
// Preloaded into the launcher under test in front of libfiu's preload libraries. It
//  - records every fault that fires (libfiu's posix wrappers ask fiu_fail, which this
//    library interposes), so that a run can show that its fault was really injected;
//  - adds the fault points libfiu has no wrapper for: strata/proc/execve,
//    strata/net/gethostname and strata/time/nanosleep (always EINTR);
//  - applies STRATA_FAULT_AFTER_READY, a libfiu control command, once the launcher has
//    told the service manager READY=1, so that a fault can start after a clean start.
// It writes its record with raw system calls: the wrapped ones may be failing.
// A fork passes this library first, then libfiu's wrapper.
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace {

using Fail = int (*)(const char*);
using Fork = pid_t (*)();
using Control = int (*)(const char*, char**);
using Execve = int (*)(const char*, char* const[], char* const[]);
using Gethostname = int (*)(char*, std::size_t);
using Nanosleep = int (*)(const timespec*, timespec*);
using Notify = int (*)(int, const char*);

template <typename Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

void record(const char* name)
{
    const char* path = std::getenv("STRATA_FAULT_RECORD");
    if (path == nullptr) {
        return;
    }
    const long descriptor = ::syscall(SYS_openat, AT_FDCWD, path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (descriptor < 0) {
        return;
    }
    char line[256];
    const std::size_t length = std::strlen(name) < sizeof(line) - 1 ? std::strlen(name) : sizeof(line) - 2;
    std::memcpy(line, name, length);
    line[length] = '\n';
    (void)::syscall(SYS_write, descriptor, line, length + 1);
    (void)::syscall(SYS_close, descriptor);
}

std::atomic<bool> armed{false};

void arm_after_ready()
{
    const char* command = std::getenv("STRATA_FAULT_AFTER_READY");
    if (command == nullptr || armed.exchange(true)) {
        return;
    }
    const auto control = reinterpret_cast<Control>(::dlsym(RTLD_DEFAULT, "fiu_rc_string"));
    char* error = nullptr;
    if (control == nullptr || control(command, &error) != 0) {
        record("strata/control-error");
    }
}

}  // namespace

extern "C" {

// libfiu's own lock is taken in fiu_fail; a fork while another thread holds it would leave
// the child, which calls wrapped functions before its execve, blocked for ever. So every
// fiu_fail holds this lock shared and every fork holds it alone. Shared, not a mutex:
// fiu_fail may resolve a symbol (the loader's lock) while another thread, inside the loader
// with that lock held, allocates and so asks fiu_fail too; a mutex would deadlock the two.
static pthread_rwlock_t fiu_lock = PTHREAD_RWLOCK_INITIALIZER;
// libfiu's fork wrapper asks fiu_fail while this thread holds the lock alone.
static __thread bool forking __attribute__((tls_model("initial-exec"))) = false;
static Fail real_fail;
static Fork real_fork;
static Execve real_execve;
static Gethostname real_gethostname;
static Nanosleep real_nanosleep;
static Notify real_notify;

__attribute__((constructor)) static void resolve()
{
    real_fail = next<Fail>("fiu_fail");
    real_fork = next<Fork>("fork");
    real_execve = next<Execve>("execve");
    real_gethostname = next<Gethostname>("gethostname");
    real_nanosleep = next<Nanosleep>("nanosleep");
    real_notify = next<Notify>("sd_notify");
    // libfiu's allocation wrappers look up the real functions at their first call, under the
    // loader's lock, and libfiu allocates while it holds its own lock. A first call from a
    // thread inside libfiu while the main thread, inside the loader, allocates would deadlock
    // the two (seen at exit, when the log library's thread is ended): make every first call
    // here, before any thread exists.
    void* block = std::calloc(1, 16);
    block = std::realloc(block, 32);
    std::free(block);
    std::free(std::malloc(16));
    std::free(::strdup("fault"));
    std::free(::strndup("fault", 2));
}

int fiu_fail(const char* name)
{
    const bool shared = !forking;
    if (shared) {
        (void)pthread_rwlock_rdlock(&fiu_lock);
    }
    const int failing = real_fail != nullptr ? real_fail(name) : 0;
    if (failing != 0) {
        record(name);
    }
    if (shared) {
        (void)pthread_rwlock_unlock(&fiu_lock);
    }
    return failing;
}

pid_t fork()
{
    (void)pthread_rwlock_wrlock(&fiu_lock);
    forking = true;
    const pid_t pid = real_fork();
    forking = false;
    const int error = errno;
    if (pid == 0) {
        // The child's only thread has a thread id of its own, which does not own the lock.
        const pthread_rwlock_t fresh = PTHREAD_RWLOCK_INITIALIZER;
        std::memcpy(&fiu_lock, &fresh, sizeof(fiu_lock));
    } else {
        (void)pthread_rwlock_unlock(&fiu_lock);
    }
    errno = error;
    return pid;
}

int execve(const char* path, char* const argv[], char* const envp[])
{
    if (fiu_fail("strata/proc/execve") != 0) {
        errno = EACCES;
        return -1;
    }
    return real_execve(path, argv, envp);
}

int gethostname(char* name, std::size_t length)
{
    if (fiu_fail("strata/net/gethostname") != 0) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return real_gethostname(name, length);
}

int nanosleep(const timespec* request, timespec* remaining)
{
    if (fiu_fail("strata/time/nanosleep") != 0) {
        if (remaining != nullptr) {
            *remaining = *request;
        }
        errno = EINTR;
        return -1;
    }
    return real_nanosleep(request, remaining);
}

int sd_notify(int unset_environment, const char* state)
{
    const int result = real_notify(unset_environment, state);
    if (state != nullptr && std::strstr(state, "READY=1") != nullptr) {
        arm_after_ready();
    }
    return result;
}
}

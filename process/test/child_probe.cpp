// Stand-in daemon for the real-process tests: does one small thing a supervised daemon does.
#include <dirent.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace {

int report(const char* file_name)
{
    std::ostringstream text;
    {
        std::ifstream status("/proc/self/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("SigBlk:", 0) == 0 || line.rfind("SigIgn:", 0) == 0) {
                text << line << '\n';
            }
        }
    }
    DIR* directory = ::opendir("/proc/self/fd");
    if (directory == nullptr) {
        return 2;
    }
    text << "fds:";
    while (const dirent* entry = ::readdir(directory)) {
        if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != ::dirfd(directory)) {
            text << ' ' << entry->d_name;
        }
    }
    ::closedir(directory);
    text << '\n';
    std::ofstream(file_name) << text.str();
    return 0;
}

int notify(const char* state)
{
    const char* path = std::getenv("NOTIFY_SOCKET");
    if (path == nullptr) {
        return 2;
    }
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
    const ssize_t sent =
        ::sendto(descriptor, state, std::strlen(state), 0, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::close(descriptor);
    return sent < 0 ? 3 : 0;
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "exit" && argc > 2) {
        return std::atoi(argv[2]);
    }
    if (mode == "sleep") {
        for (;;) {
            ::pause();
        }
    }
    if (mode == "sleep-ms" && argc > 2) {
        const long milliseconds = std::atol(argv[2]);
        timespec remaining{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
        while (::nanosleep(&remaining, &remaining) == -1) {
        }
        return 0;
    }
    if (mode == "report" && argc > 2) {
        return report(argv[2]);
    }
    if (mode == "notify" && argc > 2) {
        return notify(argv[2]);
    }
    return 64;
}

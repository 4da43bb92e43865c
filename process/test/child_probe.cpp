// Stand-in daemon for the real-process tests: does one small thing a supervised daemon does.
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

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
    return 64;
}

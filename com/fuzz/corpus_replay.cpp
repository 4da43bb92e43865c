// SPDX-License-Identifier: Apache-2.0
// Feeds every file of the corpus directories to the fuzz entry point, so that the
// corpus runs as a regression test in builds without libFuzzer.
#include <dirent.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
{
    std::size_t replayed = 0;
    for (int i = 1; i < argc; ++i) {
        DIR* directory = ::opendir(argv[i]);
        if (directory == nullptr) {
            std::fprintf(stderr, "cannot open corpus %s\n", argv[i]);
            return 1;
        }
        while (const dirent* entry = ::readdir(directory)) {
            if (entry->d_name[0] == '.') {
                continue;
            }
            std::ifstream file(std::string(argv[i]) + "/" + entry->d_name, std::ios::binary);
            const std::vector<char> bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
            (void)LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++replayed;
        }
        ::closedir(directory);
    }
    std::printf("replayed %zu inputs\n", replayed);
    return replayed > 0 ? 0 : 1;
}

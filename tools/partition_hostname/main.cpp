// SPDX-License-Identifier: Apache-2.0
// Gives the partition its host name before the launchers start. The partition names
// carry an underscore, which is no valid DNS host name: the service manager mangles or
// refuses them from /etc/hostname, the kernel command line and its host-name service,
// and so does the usual hostname command. sethostname(2) takes them as they are.
//
// The name comes from the kernel command line ("strata.partition=vm_adaptive"), so that
// one image serves every virtual machine, else from the first line of the configuration
// file that is neither blank nor a comment.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>

namespace {

constexpr const char* program = "strata-partition-hostname";
constexpr const char* parameter = "strata.partition=";
constexpr std::array<const char*, 4> partitions{"vm_adaptive", "vm_java", "vm_housekeeping", "qemu-arm64"};

std::string trimmed(const std::string& text)
{
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return "";
    }
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

// The last occurrence counts, as for every other kernel parameter. In a container the
// service manager takes its own arguments for the kernel command line, and so do we.
bool from_command_line(const std::string& path, std::string& name)
{
    std::ifstream file(path);
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::replace(text.begin(), text.end(), '\0', ' ');
    std::istringstream words(text);
    std::string word;
    bool found = false;
    while (words >> word) {
        if (word.rfind(parameter, 0) == 0) {
            name = word.substr(std::strlen(parameter));
            found = true;
        }
    }
    return found;
}

bool from_configuration(const std::string& path, std::string& name)
{
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        line = trimmed(line);
        if (!line.empty() && line[0] != '#') {
            name = line;
            return true;
        }
    }
    return false;
}

bool is_partition(const std::string& name)
{
    for (const char* partition : partitions) {
        if (name == partition) {
            return true;
        }
    }
    return false;
}

int usage()
{
    std::cerr << "Usage: " << program << " [--config FILE] [--cmdline FILE]\n"
              << "Sets the host name from " << parameter << "NAME on the kernel command line, else from the\n"
              << "first line of FILE (default /etc/strata/partition). NAME is one of vm_adaptive, vm_java,\n"
              << "vm_housekeeping, qemu-arm64." << std::endl;
    return 2;
}

}  // namespace

int main(int argc, char** argv)
{
    std::string configuration = "/etc/strata/partition";
    std::string command_line = ::access("/run/systemd/container", F_OK) == 0 ? "/proc/1/cmdline" : "/proc/cmdline";
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if ((option == "--config" || option == "--cmdline") && i + 1 < argc) {
            (option == "--config" ? configuration : command_line) = argv[++i];
        } else {
            return usage();
        }
    }

    std::string name;
    std::string source;
    if (from_command_line(command_line, name)) {
        source = "the kernel command line";
    } else if (from_configuration(configuration, name)) {
        source = configuration;
    } else {
        std::cerr << program << ": no partition name: neither " << parameter << " on the kernel command line nor a name in "
                  << configuration << std::endl;
        return 1;
    }
    if (!is_partition(name)) {
        std::cerr << program << ": \"" << name << "\" from " << source
                  << " is no partition (vm_adaptive, vm_java, vm_housekeeping, qemu-arm64)" << std::endl;
        return 1;
    }
    if (::sethostname(name.data(), name.size()) != 0) {
        const int error = errno;
        std::cerr << program << ": cannot set the host name " << name << ": " << std::strerror(error) << std::endl;
        return 1;
    }
    std::cout << program << ": host name " << name << " (from " << source << ")" << std::endl;
    return 0;
}

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dirent.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <thread>

#include "strategies/child_setup.hpp"
#include "strategies/directory_reader.hpp"
#include "strategies/interface_address_source.hpp"

using testing::AllOf;
using testing::Contains;
using testing::Field;

namespace {

std::vector<std::string> names_by_readdir(const std::string& directory)
{
    std::vector<std::string> names;
    DIR* stream = ::opendir(directory.c_str());
    for (const dirent* entry = ::readdir(stream); entry != nullptr; entry = ::readdir(stream)) {
        names.emplace_back(entry->d_name);
    }
    ::closedir(stream);
    return names;
}

TEST(SystemDirectoryReader, ListsEveryEntryInTheFileSystemsOrder)
{
    char pattern[] = "/tmp/strata_manifests_XXXXXX";
    ASSERT_NE(::mkdtemp(pattern), nullptr);
    const std::string directory = std::string(pattern) + "/";
    const std::vector<std::string> files{"z.json", "a.json", "m.json.bak", "readme"};
    for (const std::string& file : files) {
        std::ofstream(directory + file) << "{}";
    }
    Directory_reader reader;
    std::vector<std::string> names;

    EXPECT_TRUE(reader.read_entry_names(directory, names));
    EXPECT_EQ(names, names_by_readdir(directory));
    EXPECT_EQ(names.size(), files.size() + 2);

    std::vector<std::string> missing;
    EXPECT_FALSE(reader.read_entry_names(directory + "absent/", missing));

    for (const std::string& file : files) {
        (void)::unlink((directory + file).c_str());
    }
    (void)::rmdir(pattern);
}

TEST(SystemInterfaceAddresses, ReportsLoopbackWithGlobalScope)
{
    Interface_address_source source;
    std::vector<Interface_address> addresses;

    ASSERT_TRUE(source.read_ipv6_addresses(addresses));
    // A sandbox without IPv6 has no entries at all; where loopback has ::1 it is scope 0.
    for (const Interface_address& entry : addresses) {
        if (entry.address == "::1") {
            EXPECT_EQ(entry.scope_id, 0U);
        }
        EXPECT_FALSE(entry.interface_name.empty());
    }
}

void ignore_signal(int) {}

TEST(StopLoopSleep, ResumesAfterASignalInterruptsIt)
{
    struct sigaction action {};
    struct sigaction previous {};
    action.sa_handler = ignore_signal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;  // no restart: the interruption must surface as EINTR
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);

    const pthread_t sleeper = ::pthread_self();
    std::thread interrupter([sleeper] {
        for (int i = 0; i < 4; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(15));
            (void)::pthread_kill(sleeper, SIGUSR1);
        }
    });
    const auto begin = std::chrono::steady_clock::now();
    child_setup::sleep_100_ms();
    const auto elapsed = std::chrono::steady_clock::now() - begin;
    interrupter.join();
    (void)::sigaction(SIGUSR1, &previous, nullptr);

    EXPECT_GE(elapsed, std::chrono::milliseconds(100));
    EXPECT_LT(elapsed, std::chrono::milliseconds(1000));
}

}  // namespace

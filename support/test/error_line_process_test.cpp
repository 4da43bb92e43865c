// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <string>
#include <thread>

#include "support/error_line.hpp"

namespace {

std::atomic<int> interruptions{0};

void count_interruption(int)
{
    interruptions.fetch_add(1);
}

// A journal that reads slowly and a signal without SA_RESTART: the writer sees EINTR and
// short writes. A line that failed before (standard error closed) must cost that line only.
TEST(ErrorLine, LinesSurviveAFailedWriteSignalsAndShortWrites)
{
    const int saved = ::dup(STDERR_FILENO);
    ASSERT_NE(saved, -1);
    int journal[2];
    ASSERT_EQ(::pipe(journal), 0);
    ASSERT_EQ(::close(STDERR_FILENO), 0);
    write_error_line("lost");

    struct sigaction action {};
    action.sa_handler = count_interruption;
    struct sigaction previous {};
    ASSERT_EQ(::sigaction(SIGALRM, &action, &previous), 0);
    ASSERT_EQ(::dup2(journal[1], STDERR_FILENO), STDERR_FILENO);
    std::string received;
    std::thread reader([&] {
        sigset_t alarm;
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
        char buffer[4096];
        for (ssize_t got; (got = ::read(journal[0], buffer, sizeof(buffer))) != 0;) {
            if (got > 0) {
                received.append(buffer, static_cast<std::size_t>(got));
            }
        }
    });
    const itimerval often{{0, 200}, {0, 200}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
    const std::string long_line(4 * 1024 * 1024, 'x');
    write_error_line(long_line);
    write_error_text("after ");
    write_error_line("it");
    const itimerval off{};
    (void)::setitimer(ITIMER_REAL, &off, nullptr);

    (void)::dup2(saved, STDERR_FILENO);
    (void)::close(saved);
    (void)::close(journal[1]);
    reader.join();
    (void)::close(journal[0]);
    (void)::sigaction(SIGALRM, &previous, nullptr);
    EXPECT_GT(interruptions.load(), 0);
    EXPECT_EQ(received.size(), long_line.size() + 10);
    EXPECT_TRUE(received == long_line + "\nafter it\n");
}

}  // namespace

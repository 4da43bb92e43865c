#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "dlt_activation/dlt_activation_flag_observer.hpp"
#include "vela/com/runtime/handle_type.hpp"

namespace {

// Find results arrive on a middleware thread and replace the proxy while the main loop
// reads it (marker-file poll, unsubscribe at termination). Only the race detector of the
// sanitizer build can tell whether every read meets the writes under the observer's
// lock; the main side here takes no other lock, so that nothing else orders the two.
TEST(ObserverThreads, FindResultsAndTheMainLoopsReadsMeetUnderTheLock)
{
    constexpr int rounds = 200;
    DLTActivationFlagObserver observer;
    testing::internal::CaptureStderr();
    std::atomic<bool> done{false};
    std::thread middleware([&observer, &done] {
        for (int round = 0; round < rounds; ++round) {
            observer.findServiceStart({});
        }
        done.store(true);
    });
    do {
        EXPECT_FALSE(unsubscribe_data_values_hash(observer));
    } while (!done.load());
    middleware.join();
    (void)testing::internal::GetCapturedStderr();
    EXPECT_FALSE(observer.getProxy());
}

}  // namespace

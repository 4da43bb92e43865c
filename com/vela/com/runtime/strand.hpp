// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_STRAND_HPP
#define VELA_COM_RUNTIME_STRAND_HPP

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include "vela/com/runtime/worker_pool.hpp"

namespace vela {
namespace com {
namespace runtime {

// Runs the tasks posted to it one after the other, in order, on the pool's threads.
// Each proxy and skeleton has one, which serialises its handlers.
class Strand : public std::enable_shared_from_this<Strand> {
public:
    explicit Strand(std::shared_ptr<Worker_pool> pool) : pool_(std::move(pool)) {}

    void post(std::function<void()> task);

private:
    void run_one();

    std::shared_ptr<Worker_pool> pool_;
    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
    bool scheduled_ = false;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

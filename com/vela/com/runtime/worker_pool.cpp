// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/worker_pool.hpp"

#include <algorithm>

namespace vela {
namespace com {
namespace runtime {

Worker_pool::Worker_pool(std::size_t threads)
{
    for (std::size_t i = 0; i < threads; ++i) {
        threads_.emplace_back([this] { run(); });
    }
}

Worker_pool::~Worker_pool()
{
    stop();
}

void Worker_pool::post(std::function<void()> task)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (stopping_) {
            return;
        }
        tasks_.push_back(std::move(task));
    }
    wake_.notify_one();
}

void Worker_pool::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
        tasks_.clear();
    }
    wake_.notify_all();
    for (auto& thread : threads_) {
        if (thread.joinable() && thread.get_id() != std::this_thread::get_id()) {
            thread.join();
        } else if (thread.joinable()) {
            thread.detach();
        }
    }
}

bool Worker_pool::runs_on_worker() const
{
    const auto self = std::this_thread::get_id();
    return std::any_of(threads_.begin(), threads_.end(),
                       [self](const std::thread& thread) { return thread.get_id() == self; });
}

void Worker_pool::run()
{
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> lock(mutex_);
            wake_.wait(lock, [this] { return stopping_ || !tasks_.empty(); });
            if (stopping_) {
                return;
            }
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

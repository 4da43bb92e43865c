// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_WORKER_POOL_HPP
#define VELA_COM_RUNTIME_WORKER_POOL_HPP

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace vela {
namespace com {
namespace runtime {

// Threads that run application handlers, so that a handler which blocks (for example on
// a method call's future) never stalls the I/O thread that receives the answer.
class Worker_pool {
public:
    explicit Worker_pool(std::size_t threads);
    ~Worker_pool();
    Worker_pool(const Worker_pool&) = delete;
    Worker_pool& operator=(const Worker_pool&) = delete;

    // Tasks posted after stop() are dropped.
    void post(std::function<void()> task);
    // Finishes the running tasks, drops the queued ones and joins the threads.
    void stop();
    bool runs_on_worker() const;

private:
    void run();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

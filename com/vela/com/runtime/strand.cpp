// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/strand.hpp"

#include "vela/com/runtime/incident_log.hpp"

namespace vela {
namespace com {
namespace runtime {

void Strand::post(std::function<void()> task)
{
    std::lock_guard<std::mutex> lock(mutex_);
    tasks_.push_back(std::move(task));
    if (!scheduled_) {
        scheduled_ = true;
        auto self = shared_from_this();
        pool_->post([self] { self->run_one(); });
    }
}

void Strand::run_one()
{
    std::function<void()> task;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        task = std::move(tasks_.front());
        tasks_.pop_front();
    }
    try {
        task();
    } catch (const std::exception& e) {
        Incident_log::report("handler_exception", {{"what", e.what()}});
    } catch (...) {
        Incident_log::report("handler_exception", {{"what", "unknown"}});
    }
    std::lock_guard<std::mutex> lock(mutex_);
    if (tasks_.empty()) {
        scheduled_ = false;
        return;
    }
    auto self = shared_from_this();
    pool_->post([self] { self->run_one(); });
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

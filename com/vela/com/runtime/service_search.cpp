// SPDX-License-Identifier: Apache-2.0
// Searches for services: the handlers' calls on every change of the found set, and
// the FindService entries sent while nothing is found.
#include "vela/com/runtime/runtime_state.hpp"

namespace vela {
namespace com {
namespace runtime {

using someip::Entry_type;
using someip::Sd_entry;

std::uint64_t Runtime::start_find(std::uint16_t service, std::uint16_t instance, std::uint8_t major,
                                  Find_handler handler)
{
    auto find = std::make_shared<Find>();
    find->service = service;
    find->instance = instance;
    find->major = major;
    find->handler = std::move(handler);
    find->strand = make_strand();
    std::uint64_t id = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        id = next_id_++;
        find->next_send = Clock::now() + initial_delay();
        finds_[id] = find;
        report_finds(service);
    }
    wake();
    return id;
}

void Runtime::stop_find(std::uint64_t id)
{
    std::shared_ptr<Find> find;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = finds_.find(id);
        if (found == finds_.end()) {
            return;
        }
        find = found->second;
        finds_.erase(found);
    }
    std::unique_lock<std::mutex> lock(find->gate->mutex);
    find->gate->active = false;
    const auto self = std::this_thread::get_id();
    find->gate->idle.wait(lock,
                          [&] { return find->gate->running == std::thread::id() || find->gate->running == self; });
}

bool Runtime::is_available(std::uint16_t service, std::uint16_t instance) const
{
    std::lock_guard<std::mutex> lock(mutex_);
    return running_ && remote_offers_.count({service, instance}) != 0;
}

std::vector<HandleType> Runtime::matching_offers(const Find& find) const
{
    std::vector<HandleType> handles;
    const bool any = find.instance == someip::kAnyInstance;
    auto item = remote_offers_.lower_bound(Instance_key{find.service, any ? 0 : find.instance});
    for (; item != remote_offers_.end() && item->first.first == find.service; ++item) {
        if (!any && item->first.second != find.instance) {
            break;
        }
        const HandleType& handle = item->second.handle;
        if (find.major == someip::kAnyMajor || handle.major_version() == find.major) {
            handles.push_back(handle);
        }
    }
    return handles;
}

void Runtime::report_finds(std::uint16_t service)
{
    for (auto& item : finds_) {
        Find& find = *item.second;
        if (find.service != service) {
            continue;
        }
        const std::vector<HandleType> handles = matching_offers(find);
        const std::set<HandleType> current(handles.begin(), handles.end());
        // Nothing to tell before the first offer: an empty first list would read as
        // "the service stopped" to the application.
        if (find.reported_once ? current == find.reported : current.empty()) {
            continue;
        }
        find.reported_once = true;
        find.reported = current;
        auto gate = find.gate;
        auto handler = find.handler;
        find.strand->post([gate, handler, handles] {
            {
                std::lock_guard<std::mutex> lock(gate->mutex);
                if (!gate->active) {
                    return;
                }
                gate->running = std::this_thread::get_id();
            }
            try {
                handler(handles);
            } catch (...) {
                std::lock_guard<std::mutex> lock(gate->mutex);
                gate->running = std::thread::id();
                gate->idle.notify_all();
                throw;
            }
            std::lock_guard<std::mutex> lock(gate->mutex);
            gate->running = std::thread::id();
            gate->idle.notify_all();
        });
    }
}

void Runtime::run_find_timers(Clock::time_point now)
{
    const Sd_timing& timing = deployment_.timing;
    for (auto& item : finds_) {
        Find& find = *item.second;
        if (now < find.next_send) {
            continue;
        }
        if (!matching_offers(find).empty() || find.repetitions > timing.repetitions_max) {
            find.next_send = Clock::time_point::max();
            continue;
        }
        Sd_entry entry;
        entry.type = Entry_type::kFindService;
        entry.service_id = find.service;
        entry.instance_id = find.instance;
        entry.major = find.major;
        entry.ttl = timing.ttl_s;
        send_sd(sd_group_, true, {entry});
        find.next_send = find.repetitions < timing.repetitions_max
                             ? now + std::chrono::milliseconds(timing.repetitions_base_delay_ms << find.repetitions)
                             : Clock::time_point::max();
        ++find.repetitions;
    }
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

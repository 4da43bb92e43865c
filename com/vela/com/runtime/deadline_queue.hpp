// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_DEADLINE_QUEUE_HPP
#define VELA_COM_RUNTIME_DEADLINE_QUEUE_HPP

#include <chrono>
#include <map>
#include <set>
#include <utility>
#include <vector>

namespace vela {
namespace com {
namespace runtime {

// Deadlines of many keys, earliest first: setting, clearing and finding the next
// deadline cost O(log n), so that timers do not scan tables filled by peers.
template <typename Key>
class Deadline_queue {
public:
    using Time = std::chrono::steady_clock::time_point;

    // Sets or moves the key's deadline.
    void set(const Key& key, Time when)
    {
        erase(key);
        when_.emplace(key, when);
        order_.emplace(when, key);
    }
    void erase(const Key& key)
    {
        const auto found = when_.find(key);
        if (found != when_.end()) {
            order_.erase({found->second, key});
            when_.erase(found);
        }
    }
    void clear()
    {
        when_.clear();
        order_.clear();
    }
    Time next() const { return order_.empty() ? Time::max() : order_.begin()->first; }
    // Removes the keys whose deadline is not after `now` and returns them, earliest first.
    std::vector<Key> take_due(Time now)
    {
        std::vector<Key> due;
        while (!order_.empty() && order_.begin()->first <= now) {
            due.push_back(order_.begin()->second);
            when_.erase(order_.begin()->second);
            order_.erase(order_.begin());
        }
        return due;
    }
    std::size_t size() const { return when_.size(); }

private:
    std::map<Key, Time> when_;
    std::set<std::pair<Time, Key>> order_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

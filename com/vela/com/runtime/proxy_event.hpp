// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_PROXY_EVENT_HPP
#define VELA_COM_RUNTIME_PROXY_EVENT_HPP

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "vela/com/runtime/incident_log.hpp"
#include "vela/com/runtime/proxy_binding.hpp"
#include "vela/com/runtime/runtime_types.hpp"
#include "vela/com/runtime/sample_ptr.hpp"

namespace vela {
namespace com {
namespace runtime {

// The consumer's end of an event or a field notification: subscription, sample cache
// and receive handler. Samples are decoded as they arrive; undecodable ones are
// reported and dropped.
template <typename T>
class Proxy_event {
public:
    using Decoder = std::function<T(const std::vector<std::uint8_t>&)>;

    Proxy_event(std::shared_ptr<Proxy_binding> binding, const std::string& event_name, Decoder decode)
        : binding_(std::move(binding)),
          event_(binding_->service().event(event_name)),
          state_(
              std::make_shared<State>(binding_->strand(), std::move(decode), binding_->service().service_id, event_.id))
    {
    }
    // Does not wait for a handler that is running: the proxy may well be released under a
    // lock that such a handler needs. Call UnsetReceiveHandler first to wait for it.
    ~Proxy_event()
    {
        Unsubscribe();
        std::lock_guard<std::mutex> lock(state_->mutex);
        state_->handler = nullptr;
    }
    Proxy_event(const Proxy_event&) = delete;
    Proxy_event& operator=(const Proxy_event&) = delete;

    void SetReceiveHandler(std::function<void()> handler)
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        state_->handler = std::move(handler);
    }
    // Once this returns the handler neither runs nor starts (unless called from inside it).
    void UnsetReceiveHandler()
    {
        std::unique_lock<std::mutex> lock(state_->mutex);
        state_->handler = nullptr;
        const auto self = std::this_thread::get_id();
        state_->idle.wait(lock, [&] { return state_->running == std::thread::id() || state_->running == self; });
    }

    void Subscribe(std::size_t maxSampleCount)
    {
        std::lock_guard<std::mutex> serial(subscription_mutex_);
        {
            std::lock_guard<std::mutex> lock(state_->mutex);
            state_->cache_size = maxSampleCount == 0 ? 1 : maxSampleCount;
            if (subscription_ != 0) {
                return;
            }
        }
        const HandleType& handle = binding_->handle();
        subscription_ = binding_->runtime()->subscribe(handle.service_id(), handle.instance_id(),
                                                       handle.major_version(), event_.eventgroup, event_.id, state_);
    }

    void Unsubscribe()
    {
        std::lock_guard<std::mutex> serial(subscription_mutex_);
        const std::uint64_t id = subscription_.exchange(0);
        if (id == 0) {
            return;
        }
        binding_->runtime()->unsubscribe(id);
        std::lock_guard<std::mutex> lock(state_->mutex);
        state_->state = SubscriptionState::kNotSubscribed;
        state_->samples.clear();
    }

    SubscriptionState GetSubscriptionState() const
    {
        std::lock_guard<std::mutex> lock(state_->mutex);
        return subscription_ == 0 ? SubscriptionState::kNotSubscribed : state_->state;
    }

    // Calls f(SamplePtr<const T>) for at most `maxNumberOfSamples` of the samples received
    // since the last call, oldest first; returns how many were handed over.
    template <typename F>
    std::size_t GetNewSamples(F&& f, std::size_t maxNumberOfSamples = static_cast<std::size_t>(-1))
    {
        std::deque<T> taken;
        {
            std::lock_guard<std::mutex> lock(state_->mutex);
            while (!state_->samples.empty() && taken.size() < maxNumberOfSamples) {
                taken.push_back(std::move(state_->samples.front()));
                state_->samples.pop_front();
            }
        }
        for (auto& sample : taken) {
            f(SamplePtr<const T>(new T(std::move(sample))));
        }
        return taken.size();
    }

private:
    struct State : Runtime::Event_listener, std::enable_shared_from_this<State> {
        State(std::shared_ptr<Strand> strand_in, Decoder decode_in, std::uint16_t service_in, std::uint16_t event_in)
            : strand(std::move(strand_in)), decode(std::move(decode_in)), service(service_in), event(event_in)
        {
        }

        void on_notification(std::vector<std::uint8_t> payload) override
        {
            try {
                T sample = decode(payload);
                std::lock_guard<std::mutex> lock(mutex);
                samples.push_back(std::move(sample));
                while (samples.size() > cache_size) {
                    samples.pop_front();
                }
            } catch (const std::exception& e) {
                Incident_log::report("decode_failure", {{"service", Incident_log::hex(service)},
                                                        {"event", Incident_log::hex(event)},
                                                        {"size", payload.size()},
                                                        {"what", e.what()}});
                return;
            }
            // Weak: the strand belongs to this state, and a queued task that held the state
            // would keep both alive for ever when the runtime stops before the task runs.
            std::weak_ptr<State> weak = this->shared_from_this();
            strand->post([weak] {
                const std::shared_ptr<State> self = weak.lock();
                if (!self) {
                    return;
                }
                std::function<void()> current;
                {
                    std::lock_guard<std::mutex> lock(self->mutex);
                    current = self->handler;
                    if (!current) {
                        return;
                    }
                    self->running = std::this_thread::get_id();
                }
                try {
                    current();
                } catch (...) {
                    self->finished();
                    throw;
                }
                self->finished();
            });
        }

        void finished()
        {
            std::lock_guard<std::mutex> lock(mutex);
            running = std::thread::id();
            idle.notify_all();
        }

        void on_state(SubscriptionState new_state) override
        {
            std::lock_guard<std::mutex> lock(mutex);
            state = new_state;
        }

        std::shared_ptr<Strand> strand;
        Decoder decode;
        std::uint16_t service;
        std::uint16_t event;
        mutable std::mutex mutex;
        std::function<void()> handler;
        std::thread::id running;
        std::condition_variable idle;
        std::deque<T> samples;
        std::size_t cache_size = 1;
        SubscriptionState state = SubscriptionState::kNotSubscribed;
    };

    std::shared_ptr<Proxy_binding> binding_;
    Event_deployment event_;
    std::shared_ptr<State> state_;
    // Subscribe and Unsubscribe come from a find handler and from the main thread at once.
    // Each is a runtime call followed by an update of the id and the state, and an
    // interleaving could leave a runtime subscription nobody holds the id of, or a
    // subscribed event whose state reads kNotSubscribed. Taken before the runtime's lock.
    std::mutex subscription_mutex_;
    std::atomic<std::uint64_t> subscription_{0};
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

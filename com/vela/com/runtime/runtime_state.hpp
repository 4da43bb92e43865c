// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_RUNTIME_STATE_HPP
#define VELA_COM_RUNTIME_RUNTIME_STATE_HPP

// The records the runtime keeps, shared by the files that implement its parts.
#include <condition_variable>
#include <functional>
#include <string>

#include "vela/com/runtime/incident_log.hpp"
#include "vela/com/runtime/runtime.hpp"

namespace vela {
namespace com {
namespace runtime {

constexpr std::uint32_t kInfiniteTtl = 0xFFFFFF;
constexpr auto kNetworkRetry = std::chrono::seconds(1);

inline std::string hex16(std::uint16_t value)
{
    return Incident_log::hex(value);
}

inline Runtime::Clock::time_point expiry_after(Runtime::Clock::time_point now, std::uint32_t ttl)
{
    return ttl == kInfiniteTtl ? Runtime::Clock::time_point::max() : now + std::chrono::seconds(ttl);
}

inline std::uint16_t next_session(std::uint16_t session)
{
    return static_cast<std::uint16_t>(session == 0xFFFF ? 1 : session + 1);
}

// Serialises a find handler's calls with StopFindService: once stop returns, the
// handler is neither running nor called again (unless stop is called from inside it).
struct Find_gate {
    std::mutex mutex;
    std::condition_variable idle;
    bool active = true;
    std::thread::id running;
};

struct Runtime::Find {
    std::uint16_t service = 0;
    std::uint16_t instance = 0;
    std::uint8_t major = 0;
    Find_handler handler;
    std::shared_ptr<Strand> strand;
    std::shared_ptr<Find_gate> gate = std::make_shared<Find_gate>();
    std::set<HandleType> reported;
    bool reported_once = false;
    Clock::time_point next_send = Clock::time_point::max();
    std::uint32_t repetitions = 0;
};

struct Runtime::Remote_offer {
    HandleType handle;
    Endpoint sd_peer;
};

struct Runtime::Local_offer {
    Service_deployment service;
    std::uint16_t instance = 0;
    Request_handler handler;
    int fd = -1;
    Endpoint endpoint;
    Clock::time_point next_send = Clock::time_point::max();
    Clock::time_point next_socket_try{};
    bool announced = false;
    std::uint32_t repetitions = 0;
    std::map<std::uint16_t, std::set<Endpoint>> subscribers;  // eventgroup -> endpoints; expiry in the queue
    std::uint16_t notification_session = 0;
};

struct Runtime::Subscription_group {
    std::uint16_t service = 0;
    std::uint16_t instance = 0;
    std::uint8_t major = 0;
    std::uint16_t eventgroup = 0;
    std::map<std::uint64_t, std::pair<std::uint16_t, std::shared_ptr<Event_listener>>> listeners;
    SubscriptionState state = SubscriptionState::kSubscriptionPending;
    Endpoint provider_sd;
    bool requested = false;
};

struct Runtime::Pending_request {
    std::uint16_t service = 0;
    std::uint16_t instance = 0;
    Response_handler handler;
};

// Work collected under the lock and done after it is released.
struct Runtime::Outbox {
    std::vector<std::function<void()>> calls;
    void run()
    {
        for (auto& call : calls) {
            call();
        }
    }
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

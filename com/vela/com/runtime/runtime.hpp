// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_RUNTIME_HPP
#define VELA_COM_RUNTIME_RUNTIME_HPP

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "vela/com/runtime/deadline_queue.hpp"
#include "vela/com/runtime/deployment.hpp"
#include "vela/com/runtime/endpoint.hpp"
#include "vela/com/runtime/handle_type.hpp"
#include "vela/com/runtime/runtime_types.hpp"
#include "vela/com/runtime/sd_reboot_detector.hpp"
#include "vela/com/runtime/sd_session_counter.hpp"
#include "vela/com/runtime/strand.hpp"
#include "vela/com/runtime/worker_pool.hpp"
#include "vela/com/someip/message_header.hpp"
#include "vela/com/someip/sd_message.hpp"

namespace vela {
namespace com {
namespace runtime {

// The process's SOME/IP engine: one I/O thread owns the sockets and the service
// discovery timing; application handlers run on a worker pool, serialised per strand.
// All state is guarded by one mutex, which is never held while application code runs.
class Runtime {
public:
    using Clock = std::chrono::steady_clock;
    using Find_handler = std::function<void(std::vector<HandleType>)>;

    struct Response {
        bool delivered = false;  // false: no answer (offer ended, timeout, shutdown)
        someip::Message_header header;
        std::vector<std::uint8_t> payload;
        std::string failure;
    };
    using Response_handler = std::function<void(Response)>;
    using Reply = std::function<void(someip::Return_code, std::vector<std::uint8_t>)>;
    // Called on the I/O thread; must hand the work on and return.
    using Request_handler = std::function<void(const someip::Message_header&, std::vector<std::uint8_t>, Reply)>;

    struct Event_listener {
        virtual ~Event_listener() = default;
        virtual void on_notification(std::vector<std::uint8_t> payload) = 0;
        virtual void on_state(SubscriptionState state) = 0;
    };

    explicit Runtime(Deployment deployment);
    ~Runtime();
    Runtime(const Runtime&) = delete;
    Runtime& operator=(const Runtime&) = delete;

    void start();
    // Ends offers and subscriptions on the wire, fails pending calls, joins all threads.
    void stop();

    const Service_deployment* service(const std::string& name) const;
    std::shared_ptr<Strand> make_strand() { return std::make_shared<Strand>(pool_); }
    std::shared_ptr<Worker_pool> pool() const { return pool_; }
    const Deployment& deployment() const { return deployment_; }

    // Consumer side.
    std::uint64_t start_find(std::uint16_t service, std::uint16_t instance, std::uint8_t major, Find_handler handler);
    void stop_find(std::uint64_t id);
    bool is_available(std::uint16_t service, std::uint16_t instance) const;
    // False when the service instance is not offered; `handler` then is never called.
    bool send_request(std::uint16_t service, std::uint16_t instance, std::uint16_t method,
                      const std::vector<std::uint8_t>& payload, Response_handler handler);
    std::uint64_t subscribe(std::uint16_t service, std::uint16_t instance, std::uint8_t major, std::uint16_t eventgroup,
                            std::uint16_t event, const std::shared_ptr<Event_listener>& listener);
    void unsubscribe(std::uint64_t id);

    // Provider side.
    void offer(const Service_deployment& service, std::uint16_t instance, Request_handler handler);
    void stop_offer(std::uint16_t service, std::uint16_t instance);
    // Sends to every subscriber of the event's eventgroup; a field's value is kept for new subscribers.
    void notify(std::uint16_t service, std::uint16_t instance, const Event_deployment& event,
                const std::vector<std::uint8_t>& payload);

private:
    struct Find;
    struct Remote_offer;
    struct Local_offer;
    struct Subscription_group;
    struct Pending_request;
    struct Outbox;
    using Instance_key = std::pair<std::uint16_t, std::uint16_t>;                       // service, instance
    using Group_key = std::tuple<std::uint16_t, std::uint16_t, std::uint16_t>;           // ... and eventgroup
    using Subscriber_key = std::tuple<std::uint16_t, std::uint16_t, std::uint16_t, Endpoint>;

    // The I/O thread and its timing (runtime.cpp).
    void io_loop();
    void wake();
    Clock::time_point next_deadline() const;
    void run_timers(Clock::time_point now, Outbox& out);
    Clock::duration initial_delay();

    // Sockets and datagram framing (udp_transport.cpp).
    bool open_network(Clock::time_point now);
    void close_network();
    int open_data_socket(std::uint16_t port);
    bool open_offer_socket(Local_offer& offer, Clock::time_point now);
    void receive(int fd, bool sd, bool multicast, Outbox& out);
    void send_datagram(int fd, const Endpoint& to, const std::vector<std::uint8_t>& bytes);

    // Discovery messages, remote offers and answers to finds (service_discovery.cpp).
    // False when the message is not a valid discovery message: the rest of its datagram is dropped.
    bool handle_sd_message(const someip::Message_header& header, const std::uint8_t* payload, std::size_t size,
                           const Endpoint& from, bool multicast, Outbox& out);
    void handle_find(const someip::Sd_entry& entry, std::set<Instance_key>& answers);
    void answer_finds(const std::set<Instance_key>& answers, const Endpoint& from, bool unicast);
    void handle_offer(const someip::Sd_entry& entry, const Endpoint& from, Outbox& out);
    void peer_rebooted(const Endpoint& peer, Outbox& out);
    void remove_remote_offer(const Instance_key& key, const char* why, Outbox& out);
    void run_offer_timers(Clock::time_point now);
    void send_sd(const Endpoint& to, bool multicast, std::vector<someip::Sd_entry> entries);
    someip::Sd_entry offer_entry(const Local_offer& offer, std::uint32_t ttl) const;
    void report_limit(const char* limit, const Endpoint& peer, std::uint32_t value);

    // Searches and their handlers (service_search.cpp).
    void run_find_timers(Clock::time_point now);
    void report_finds(std::uint16_t service);
    std::vector<HandleType> matching_offers(const Find& find) const;

    // Requests and responses (method_calls.cpp).
    void handle_data(const someip::Message_header& header, const std::uint8_t* payload, std::size_t size,
                     const Endpoint& from, int fd, Outbox& out);
    void handle_response(const someip::Message_header& header, const std::uint8_t* payload, std::size_t size,
                         const Endpoint& from, Outbox& out);
    void handle_request(const someip::Message_header& header, const std::uint8_t* payload, std::size_t size,
                        const Endpoint& from, int fd);
    void reply(int fd, const Endpoint& to, someip::Message_header header, someip::Return_code code,
               const std::vector<std::uint8_t>& payload);
    void fail_pending(std::uint16_t session, const char* why, Outbox& out);

    // Subscriptions on both sides and notifications (event_distribution.cpp).
    void handle_subscribe(const someip::Sd_entry& entry, const Endpoint& from);
    void handle_ack(const someip::Sd_entry& entry, const Endpoint& from);
    void handle_notification(const someip::Message_header& header, const std::uint8_t* payload, std::size_t size,
                             const Endpoint& from, Outbox& out);
    void set_group_state(Subscription_group& group, SubscriptionState state);
    void send_initial_fields(Local_offer& offer, std::uint16_t eventgroup, const Endpoint& subscriber);
    void expire_subscriber(const Subscriber_key& key);
    void drop_subscribers_of(const Endpoint& host);
    someip::Sd_entry subscribe_entry(const Subscription_group& group, std::uint32_t ttl) const;

    Deployment deployment_;
    Deployment builtin_;
    std::shared_ptr<Worker_pool> pool_;
    mutable std::mutex mutex_;
    std::thread io_thread_;
    std::atomic<bool> running_{false};
    int wake_fd_ = -1;

    bool network_up_ = false;
    Clock::time_point network_retry_{};
    Endpoint unicast_;
    Endpoint sd_group_;
    int sd_unicast_fd_ = -1;
    int sd_multicast_fd_ = -1;
    int default_fd_ = -1;
    std::map<int, Endpoint> data_sockets_;  // fd -> bound local endpoint

    std::uint16_t client_id_ = 0;
    std::uint16_t next_session_ = 1;
    std::uint64_t next_id_ = 1;
    std::minstd_rand random_;
    Sd_session_counter multicast_sessions_;
    std::map<std::string, Sd_session_counter> unicast_sessions_;
    Sd_reboot_detector reboot_detector_;

    // Few and made by the application: scanned where needed.
    std::map<std::uint64_t, std::shared_ptr<Find>> finds_;
    std::map<Instance_key, std::shared_ptr<Local_offer>> local_offers_;
    std::map<Group_key, std::shared_ptr<Subscription_group>> groups_;
    std::map<std::uint64_t, Group_key> subscription_ids_;
    // Filled by peers: bounded, indexed, and timed by deadline queues.
    std::map<Instance_key, Remote_offer> remote_offers_;
    std::map<std::string, std::set<Instance_key>> offers_by_peer_;  // discovery endpoint -> its offers
    Deadline_queue<Instance_key> offer_expiry_;
    Deadline_queue<Subscriber_key> subscriber_expiry_;
    std::map<std::uint16_t, std::shared_ptr<Pending_request>> pending_;
    Deadline_queue<std::uint16_t> request_deadlines_;
    // Last value of each field, kept while the offer is down too, for new subscribers.
    std::map<Instance_key, std::map<std::uint16_t, std::pair<Event_deployment, std::vector<std::uint8_t>>>>
        field_values_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

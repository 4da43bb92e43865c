#include "vela/com/runtime/runtime.hpp"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>

#include "vela/com/runtime/incident_log.hpp"

namespace vela {
namespace com {
namespace runtime {

using someip::Entry_type;
using someip::Message_header;
using someip::Message_type;
using someip::Return_code;
using someip::Sd_entry;
using someip::Sd_message;

namespace {
constexpr std::uint32_t kInfiniteTtl = 0xFFFFFF;
constexpr std::size_t kMaxDatagram = 65536;
constexpr auto kNetworkRetry = std::chrono::seconds(1);
constexpr std::size_t kWorkerThreads = 3;

std::string hex16(std::uint16_t value)
{
    return Incident_log::hex(value);
}

Runtime::Clock::time_point expiry_after(Runtime::Clock::time_point now, std::uint32_t ttl)
{
    return ttl == kInfiniteTtl ? Runtime::Clock::time_point::max() : now + std::chrono::seconds(ttl);
}

// Serialises a find handler's calls with StopFindService: once stop returns, the
// handler is neither running nor called again (unless stop is called from inside it).
struct Find_gate {
    std::mutex mutex;
    std::condition_variable idle;
    bool active = true;
    std::thread::id running;
};
}  // namespace

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
    Clock::time_point expiry;
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
    std::map<std::uint16_t, std::map<Endpoint, Clock::time_point>> subscribers;  // eventgroup -> endpoint
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
    Clock::time_point deadline;
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

Runtime::Runtime(Deployment deployment)
    : deployment_(std::move(deployment)),
      builtin_(Deployment::defaults()),
      pool_(std::make_shared<Worker_pool>(kWorkerThreads)),
      random_(static_cast<std::uint32_t>(::getpid()) ^
              static_cast<std::uint32_t>(Clock::now().time_since_epoch().count()))
{
    client_id_ =
        deployment_.client_id != 0 ? deployment_.client_id : static_cast<std::uint16_t>((::getpid() & 0x7FFF) | 0x0100);
}

Runtime::~Runtime()
{
    stop();
}

void Runtime::start()
{
    if (running_.exchange(true)) {
        return;
    }
    wake_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    io_thread_ = std::thread([this] { io_loop(); });
}

void Runtime::stop()
{
    if (!running_.exchange(false)) {
        return;
    }
    Outbox out;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (network_up_) {
            std::vector<Sd_entry> stop_offers;
            for (const auto& item : local_offers_) {
                if (item.second->announced) {
                    stop_offers.push_back(offer_entry(*item.second, 0));
                }
            }
            if (!stop_offers.empty()) {
                send_sd(sd_group_, true, stop_offers);
            }
            for (const auto& item : groups_) {
                if (item.second->requested) {
                    send_sd(item.second->provider_sd, false, {subscribe_entry(*item.second, 0)});
                }
            }
        }
        for (auto& item : pending_) {
            auto handler = item.second->handler;
            out.calls.push_back([handler] { handler(Response{false, {}, {}, "runtime stopped"}); });
        }
        pending_.clear();
    }
    wake();
    if (io_thread_.joinable()) {
        io_thread_.join();
    }
    out.run();
    pool_->stop();
    std::lock_guard<std::mutex> lock(mutex_);
    close_network();
    if (wake_fd_ >= 0) {
        (void)::close(wake_fd_);
        wake_fd_ = -1;
    }
}

const Service_deployment* Runtime::service(const std::string& name) const
{
    const Service_deployment* found = deployment_.service(name);
    return found != nullptr ? found : builtin_.service(name);
}

void Runtime::wake()
{
    if (wake_fd_ >= 0) {
        const std::uint64_t one = 1;
        (void)!::write(wake_fd_, &one, sizeof one);
    }
}

// ---------------------------------------------------------------- consumer side

std::uint64_t Runtime::start_find(std::uint16_t service, std::uint16_t instance, std::uint8_t major,
                                  Find_handler handler)
{
    auto find = std::make_shared<Find>();
    find->service = service;
    find->instance = instance;
    find->major = major;
    find->handler = std::move(handler);
    find->strand = make_strand();
    Outbox out;
    std::uint64_t id = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        id = next_id_++;
        find->next_send = Clock::now() + initial_delay();
        finds_[id] = find;
        if (!matching_offers(*find).empty()) {
            report_finds(out);
        }
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

bool Runtime::send_request(std::uint16_t service, std::uint16_t instance, std::uint16_t method,
                           const std::vector<std::uint8_t>& payload, Response_handler handler)
{
    std::lock_guard<std::mutex> lock(mutex_);
    const auto offer = remote_offers_.find({service, instance});
    if (!running_ || !network_up_ || offer == remote_offers_.end()) {
        return false;
    }
    Message_header header;
    header.service_id = service;
    header.method_id = method;
    header.client_id = client_id_;
    do {
        header.session_id = next_session_;
        next_session_ = static_cast<std::uint16_t>(next_session_ == 0xFFFF ? 1 : next_session_ + 1);
    } while (pending_.count(header.session_id) != 0);
    header.interface_version = offer->second.handle.major_version();
    header.message_type = Message_type::kRequest;
    auto pending = std::make_shared<Pending_request>();
    pending->service = service;
    pending->instance = instance;
    pending->handler = std::move(handler);
    pending->deadline = Clock::now() + std::chrono::milliseconds(deployment_.request_timeout_ms);
    pending_[header.session_id] = pending;
    send_datagram(default_fd_, offer->second.handle.endpoint(), header.encode(payload));
    wake();
    return true;
}

std::uint64_t Runtime::subscribe(std::uint16_t service, std::uint16_t instance, std::uint8_t major,
                                 std::uint16_t eventgroup, std::uint16_t event,
                                 const std::shared_ptr<Event_listener>& listener)
{
    Outbox out;
    std::uint64_t id = 0;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        id = next_id_++;
        const auto key = std::make_tuple(service, instance, eventgroup);
        auto& group = groups_[key];
        if (!group) {
            group = std::make_shared<Subscription_group>();
            group->service = service;
            group->instance = instance;
            group->major = major;
            group->eventgroup = eventgroup;
        }
        group->listeners[id] = {event, listener};
        subscription_ids_[id] = key;
        listener->on_state(group->state);
        const auto offer = remote_offers_.find({service, instance});
        if (offer != remote_offers_.end() && network_up_) {
            group->provider_sd = offer->second.sd_peer;
            group->requested = true;
            send_sd(group->provider_sd, false, {subscribe_entry(*group, deployment_.timing.ttl_s)});
        }
    }
    out.run();
    return id;
}

void Runtime::unsubscribe(std::uint64_t id)
{
    std::lock_guard<std::mutex> lock(mutex_);
    const auto key = subscription_ids_.find(id);
    if (key == subscription_ids_.end()) {
        return;
    }
    const auto group = groups_.find(key->second);
    subscription_ids_.erase(key);
    if (group == groups_.end()) {
        return;
    }
    group->second->listeners.erase(id);
    if (group->second->listeners.empty()) {
        if (group->second->requested && network_up_ && running_) {
            send_sd(group->second->provider_sd, false, {subscribe_entry(*group->second, 0)});
        }
        groups_.erase(group);
    }
}

// ---------------------------------------------------------------- provider side

void Runtime::offer(const Service_deployment& service, std::uint16_t instance, Request_handler handler)
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto offer = std::make_shared<Local_offer>();
        offer->service = service;
        offer->instance = instance;
        offer->handler = std::move(handler);
        offer->next_send = Clock::now() + initial_delay();
        local_offers_[{service.service_id, instance}] = offer;
    }
    wake();
}

void Runtime::stop_offer(std::uint16_t service, std::uint16_t instance)
{
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = local_offers_.find({service, instance});
    if (found == local_offers_.end()) {
        return;
    }
    if (found->second->announced && network_up_ && running_) {
        send_sd(sd_group_, true, {offer_entry(*found->second, 0)});
    }
    local_offers_.erase(found);
}

void Runtime::notify(std::uint16_t service, std::uint16_t instance, const Event_deployment& event,
                     const std::vector<std::uint8_t>& payload)
{
    std::lock_guard<std::mutex> lock(mutex_);
    if (event.field) {
        field_values_[{service, instance}][event.id] = {event, payload};
    }
    const auto found = local_offers_.find({service, instance});
    if (found == local_offers_.end()) {
        return;
    }
    Local_offer& offer = *found->second;
    Message_header header;
    header.service_id = service;
    header.method_id = event.id;
    header.interface_version = offer.service.major;
    header.message_type = Message_type::kNotification;
    offer.notification_session =
        static_cast<std::uint16_t>(offer.notification_session == 0xFFFF ? 1 : offer.notification_session + 1);
    header.session_id = offer.notification_session;
    const std::vector<std::uint8_t> bytes = header.encode(payload);
    if (offer.fd < 0) {
        return;
    }
    for (const auto& subscriber : offer.subscribers[event.eventgroup]) {
        send_datagram(offer.fd, subscriber.first, bytes);
    }
}

// ---------------------------------------------------------------- I/O loop

void Runtime::io_loop()
{
    std::vector<std::uint8_t> drain(8);
    while (running_) {
        std::vector<pollfd> fds;
        int timeout_ms = 0;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto now = Clock::now();
            if (!network_up_ && now >= network_retry_) {
                network_up_ = open_network(now);
            }
            fds.push_back({wake_fd_, POLLIN, 0});
            for (const auto& item : data_sockets_) {
                fds.push_back({item.first, POLLIN, 0});
            }
            if (sd_unicast_fd_ >= 0) {
                fds.push_back({sd_unicast_fd_, POLLIN, 0});
            }
            if (sd_multicast_fd_ >= 0) {
                fds.push_back({sd_multicast_fd_, POLLIN, 0});
            }
            const auto deadline = next_deadline();
            if (deadline == Clock::time_point::max()) {
                timeout_ms = -1;
            } else if (deadline > now) {
                timeout_ms =
                    static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count() + 1);
            }
        }
        const int ready = ::poll(fds.data(), fds.size(), timeout_ms);
        if (ready < 0 && errno != EINTR) {
            Incident_log::report("runtime_error", {{"call", "poll"}, {"error", std::strerror(errno)}});
        }
        Outbox out;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            for (const auto& entry : fds) {
                if ((entry.revents & POLLIN) == 0) {
                    continue;
                }
                if (entry.fd == wake_fd_) {
                    (void)!::read(wake_fd_, drain.data(), drain.size());
                } else {
                    receive(entry.fd, entry.fd == sd_unicast_fd_ || entry.fd == sd_multicast_fd_,
                            entry.fd == sd_multicast_fd_, out);
                }
            }
            if (network_up_) {
                run_timers(Clock::now(), out);
            }
        }
        out.run();
    }
}

Runtime::Clock::time_point Runtime::next_deadline() const
{
    Clock::time_point deadline = network_up_ ? Clock::time_point::max() : network_retry_;
    if (!network_up_) {
        return deadline;
    }
    for (const auto& item : local_offers_) {
        deadline = std::min(deadline, item.second->fd < 0 ? item.second->next_socket_try : item.second->next_send);
        for (const auto& group : item.second->subscribers) {
            for (const auto& subscriber : group.second) {
                deadline = std::min(deadline, subscriber.second);
            }
        }
    }
    for (const auto& item : finds_) {
        deadline = std::min(deadline, item.second->next_send);
    }
    for (const auto& item : remote_offers_) {
        deadline = std::min(deadline, item.second.expiry);
    }
    for (const auto& item : pending_) {
        deadline = std::min(deadline, item.second->deadline);
    }
    return deadline;
}

void Runtime::run_timers(Clock::time_point now, Outbox& out)
{
    run_offer_timers(now);
    run_find_timers(now);
    expire(now, out);
}

void Runtime::run_offer_timers(Clock::time_point now)
{
    const Sd_timing& timing = deployment_.timing;
    for (auto& item : local_offers_) {
        Local_offer& offer = *item.second;
        if (offer.fd < 0 && !open_offer_socket(offer, now)) {
            continue;
        }
        if (now < offer.next_send) {
            continue;
        }
        send_sd(sd_group_, true, {offer_entry(offer, timing.ttl_s)});
        if (!offer.announced) {
            offer.announced = true;
            offer.repetitions = 0;
        } else if (offer.repetitions < timing.repetitions_max) {
            ++offer.repetitions;
        }
        if (offer.repetitions < timing.repetitions_max) {
            offer.next_send = now + std::chrono::milliseconds(timing.repetitions_base_delay_ms << offer.repetitions);
        } else if (timing.cyclic_offer_delay_ms > 0) {
            offer.next_send = now + std::chrono::milliseconds(timing.cyclic_offer_delay_ms);
        } else {
            offer.next_send = Clock::time_point::max();
        }
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

void Runtime::expire(Clock::time_point now, Outbox& out)
{
    std::vector<std::pair<std::uint16_t, std::uint16_t>> expired;
    for (const auto& item : remote_offers_) {
        if (item.second.expiry <= now) {
            expired.push_back(item.first);
        }
    }
    for (const auto& key : expired) {
        remove_remote_offer(key.first, key.second, "ttl_expired", out);
    }
    for (auto& item : local_offers_) {
        for (auto& group : item.second->subscribers) {
            for (auto subscriber = group.second.begin(); subscriber != group.second.end();) {
                if (subscriber->second > now) {
                    ++subscriber;
                    continue;
                }
                Incident_log::report("ttl_expired", {{"what", "subscription"},
                                                     {"service", hex16(item.first.first)},
                                                     {"instance", hex16(item.first.second)},
                                                     {"eventgroup", hex16(group.first)},
                                                     {"subscriber", subscriber->first.to_string()}});
                subscriber = group.second.erase(subscriber);
            }
        }
    }
    for (auto pending = pending_.begin(); pending != pending_.end();) {
        if (pending->second->deadline > now) {
            ++pending;
            continue;
        }
        auto handler = pending->second->handler;
        out.calls.push_back([handler] { handler(Response{false, {}, {}, "Timeout exception"}); });
        pending = pending_.erase(pending);
    }
}

// ---------------------------------------------------------------- receiving

void Runtime::receive(int fd, bool sd, bool multicast, Outbox& out)
{
    std::vector<std::uint8_t> buffer(kMaxDatagram);
    for (;;) {
        sockaddr_storage source{};
        socklen_t source_length = sizeof source;
        const ssize_t size = ::recvfrom(fd, buffer.data(), buffer.size(), MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr*>(&source), &source_length);
        if (size < 0) {
            return;
        }
        const Endpoint from = Endpoint::from_sockaddr(source);
        const auto length = static_cast<std::size_t>(size);
        Message_header header;
        if (!Message_header::decode(buffer.data(), length, header)) {
            Incident_log::report(
                "malformed_message",
                {{"peer", from.to_string()}, {"size", length}, {"reason", "header too short or length mismatch"}});
            continue;
        }
        if (!sd) {
            handle_data(buffer.data(), length, from, fd, out);
            continue;
        }
        Sd_message message;
        std::string error;
        if (header.service_id != someip::kSdServiceId || header.method_id != someip::kSdMethodId ||
            !Sd_message::decode(buffer.data() + someip::kHeaderSize, length - someip::kHeaderSize, message, error)) {
            Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                                       {"service", hex16(header.service_id)},
                                                       {"method", hex16(header.method_id)},
                                                       {"reason", error.empty() ? "not a discovery message" : error}});
            continue;
        }
        if (reboot_detector_.observe(from.to_string(), multicast, header.session_id, message.reboot)) {
            reboot_detector_.forget(from.to_string());
            (void)reboot_detector_.observe(from.to_string(), multicast, header.session_id, message.reboot);
            Incident_log::report("reboot_detected", {{"peer", from.to_string()}, {"session", header.session_id}});
            peer_rebooted(from, out);
        }
        handle_sd(message, from, multicast, out);
    }
}

void Runtime::handle_data(const std::uint8_t* data, std::size_t size, const Endpoint& from, int fd, Outbox& out)
{
    Message_header header;
    (void)Message_header::decode(data, size, header);
    const std::uint8_t* payload = data + someip::kHeaderSize;
    const std::size_t payload_size = size - someip::kHeaderSize;
    switch (header.message_type) {
        case Message_type::kRequest:
        case Message_type::kRequestNoReturn:
            handle_request(header, payload, payload_size, from, fd, out);
            return;
        case Message_type::kResponse:
        case Message_type::kError: {
            const auto pending = pending_.find(header.session_id);
            if (header.client_id != client_id_ || pending == pending_.end()) {
                Incident_log::report("unexpected_response", {{"peer", from.to_string()},
                                                             {"service", hex16(header.service_id)},
                                                             {"method", hex16(header.method_id)},
                                                             {"session", header.session_id}});
                return;
            }
            auto handler = pending->second->handler;
            pending_.erase(pending);
            Response response{true, header, std::vector<std::uint8_t>(payload, payload + payload_size), {}};
            out.calls.push_back([handler, response]() mutable { handler(std::move(response)); });
            return;
        }
        case Message_type::kNotification: {
            bool wanted = false;
            for (const auto& item : groups_) {
                if (item.second->service != header.service_id) {
                    continue;
                }
                for (const auto& listener : item.second->listeners) {
                    if (listener.second.first == header.method_id) {
                        wanted = true;
                        auto target = listener.second.second;
                        std::vector<std::uint8_t> copy(payload, payload + payload_size);
                        out.calls.push_back([target, copy]() mutable { target->on_notification(std::move(copy)); });
                    }
                }
            }
            if (!wanted) {
                Incident_log::report("unknown_event", {{"peer", from.to_string()},
                                                       {"service", hex16(header.service_id)},
                                                       {"event", hex16(header.method_id)}});
            }
            return;
        }
    }
    Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                               {"service", hex16(header.service_id)},
                                               {"method", hex16(header.method_id)},
                                               {"reason", "unknown message type"},
                                               {"message_type", static_cast<int>(header.message_type)}});
}

void Runtime::handle_request(const Message_header& header, const std::uint8_t* payload, std::size_t size,
                             const Endpoint& from, int fd, Outbox&)
{
    const bool wants_reply = header.message_type == Message_type::kRequest;
    auto refuse = [&](Return_code code, const char* incident) {
        Incident_log::report(incident, {{"peer", from.to_string()},
                                        {"service", hex16(header.service_id)},
                                        {"method", hex16(header.method_id)},
                                        {"return_code", someip::to_string(code)}});
        if (wants_reply) {
            reply(fd, from, header, code, {});
        }
    };
    if (header.protocol_version != someip::kProtocolVersion) {
        refuse(Return_code::kWrongProtocolVersion, "malformed_message");
        return;
    }
    std::shared_ptr<Local_offer> offer;
    for (const auto& item : local_offers_) {
        if (item.first.first == header.service_id && item.second->fd == fd) {
            offer = item.second;
        }
    }
    if (!offer) {
        refuse(Return_code::kUnknownService, "unknown_service");
        return;
    }
    if (header.interface_version != offer->service.major) {
        refuse(Return_code::kWrongInterfaceVersion, "wrong_interface_version");
        return;
    }
    const bool known = std::any_of(offer->service.methods.begin(), offer->service.methods.end(),
                                   [&](const auto& method) { return method.second == header.method_id; });
    if (!known) {
        refuse(Return_code::kUnknownMethod, "unknown_method");
        return;
    }
    Reply answer = [this, fd, from, header, wants_reply](Return_code code, const std::vector<std::uint8_t>& bytes) {
        if (!wants_reply) {
            return;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        if (running_ && data_sockets_.count(fd) != 0) {
            reply(fd, from, header, code, bytes);
        }
    };
    offer->handler(header, std::vector<std::uint8_t>(payload, payload + size), std::move(answer));
}

void Runtime::reply(int fd, const Endpoint& to, Message_header header, Return_code code,
                    const std::vector<std::uint8_t>& payload)
{
    header.message_type = code == Return_code::kOk ? Message_type::kResponse : Message_type::kError;
    header.return_code = code;
    header.protocol_version = someip::kProtocolVersion;
    send_datagram(fd, to, header.encode(code == Return_code::kOk ? payload : std::vector<std::uint8_t>{}));
}

// ---------------------------------------------------------------- service discovery

void Runtime::handle_sd(const Sd_message& message, const Endpoint& from, bool, Outbox& out)
{
    for (const auto& entry : message.entries) {
        switch (entry.type) {
            case Entry_type::kFindService:
                handle_find(entry, from, out);
                break;
            case Entry_type::kOfferService:
                handle_offer(entry, from, out);
                break;
            case Entry_type::kSubscribeEventgroup:
                handle_subscribe(entry, from, out);
                break;
            case Entry_type::kSubscribeEventgroupAck:
                handle_ack(entry, from, out);
                break;
            default:
                Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                                           {"reason", "unknown entry type"},
                                                           {"entry_type", static_cast<int>(entry.type)}});
        }
    }
}

void Runtime::handle_find(const Sd_entry& entry, const Endpoint& from, Outbox&)
{
    std::vector<Sd_entry> answers;
    for (const auto& item : local_offers_) {
        const Local_offer& offer = *item.second;
        const bool match = entry.service_id == offer.service.service_id &&
                           (entry.instance_id == someip::kAnyInstance || entry.instance_id == offer.instance) &&
                           (entry.major == someip::kAnyMajor || entry.major == offer.service.major) &&
                           (entry.minor == someip::kAnyMinor || entry.minor == offer.service.minor);
        if (match && offer.announced) {
            answers.push_back(offer_entry(offer, deployment_.timing.ttl_s));
        }
    }
    if (!answers.empty()) {
        send_sd(from, false, answers);
    }
}

void Runtime::handle_offer(const Sd_entry& entry, const Endpoint& from, Outbox& out)
{
    const auto key = std::make_pair(entry.service_id, entry.instance_id);
    if (entry.ttl == 0) {
        if (remote_offers_.count(key) != 0) {
            remove_remote_offer(entry.service_id, entry.instance_id, "stop_offer", out);
        }
        return;
    }
    Endpoint endpoint;
    if (!entry.udp_endpoint(endpoint)) {
        Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                                   {"service", hex16(entry.service_id)},
                                                   {"instance", hex16(entry.instance_id)},
                                                   {"reason", "offer without UDP endpoint option"}});
        return;
    }
    const HandleType handle(entry.service_id, entry.instance_id, entry.major, entry.minor, endpoint);
    const auto now = Clock::now();
    const auto found = remote_offers_.find(key);
    const bool changed = found == remote_offers_.end() || found->second.handle != handle;
    remote_offers_[key] = Remote_offer{handle, from, expiry_after(now, entry.ttl)};
    if (changed) {
        report_finds(out);
    }
    for (auto& item : groups_) {
        Subscription_group& group = *item.second;
        if (group.service == entry.service_id && group.instance == entry.instance_id) {
            group.provider_sd = from;
            group.requested = true;
            send_sd(from, false, {subscribe_entry(group, deployment_.timing.ttl_s)});
        }
    }
}

void Runtime::handle_subscribe(const Sd_entry& entry, const Endpoint& from, Outbox&)
{
    const auto found = local_offers_.find({entry.service_id, entry.instance_id});
    Sd_entry ack;
    ack.type = Entry_type::kSubscribeEventgroupAck;
    ack.service_id = entry.service_id;
    ack.instance_id = entry.instance_id;
    ack.major = entry.major;
    ack.counter = entry.counter;
    ack.eventgroup_id = entry.eventgroup_id;
    Endpoint subscriber;
    const char* refusal = nullptr;
    if (found == local_offers_.end() || !found->second->announced) {
        refusal = "service instance not offered";
    } else if (entry.major != found->second->service.major) {
        refusal = "major version differs";
    } else if (!entry.udp_endpoint(subscriber)) {
        refusal = "no UDP endpoint option";
    } else if (std::none_of(found->second->service.events.begin(), found->second->service.events.end(),
                            [&](const auto& event) { return event.second.eventgroup == entry.eventgroup_id; })) {
        refusal = "unknown eventgroup";
    }
    if (entry.ttl == 0) {
        if (refusal == nullptr) {
            found->second->subscribers[entry.eventgroup_id].erase(subscriber);
        }
        return;
    }
    if (refusal != nullptr) {
        Incident_log::report("subscription_refused", {{"peer", from.to_string()},
                                                      {"service", hex16(entry.service_id)},
                                                      {"instance", hex16(entry.instance_id)},
                                                      {"eventgroup", hex16(entry.eventgroup_id)},
                                                      {"reason", refusal}});
        ack.ttl = 0;
        send_sd(from, false, {ack});
        return;
    }
    ack.ttl = entry.ttl;
    auto& subscribers = found->second->subscribers[entry.eventgroup_id];
    const bool is_new = subscribers.count(subscriber) == 0;
    subscribers[subscriber] = expiry_after(Clock::now(), entry.ttl);
    send_sd(from, false, {ack});
    if (is_new) {
        send_initial_fields(*found->second, entry.eventgroup_id, subscriber);
    }
}

void Runtime::send_initial_fields(Local_offer& offer, std::uint16_t eventgroup, const Endpoint& subscriber)
{
    for (const auto& item : field_values_[{offer.service.service_id, offer.instance}]) {
        if (item.second.first.eventgroup != eventgroup) {
            continue;
        }
        Message_header header;
        header.service_id = offer.service.service_id;
        header.method_id = item.first;
        header.interface_version = offer.service.major;
        header.message_type = Message_type::kNotification;
        offer.notification_session =
            static_cast<std::uint16_t>(offer.notification_session == 0xFFFF ? 1 : offer.notification_session + 1);
        header.session_id = offer.notification_session;
        send_datagram(offer.fd, subscriber, header.encode(item.second.second));
    }
}

void Runtime::handle_ack(const Sd_entry& entry, const Endpoint& from, Outbox& out)
{
    const auto found = groups_.find(std::make_tuple(entry.service_id, entry.instance_id, entry.eventgroup_id));
    if (found == groups_.end()) {
        return;
    }
    if (entry.ttl == 0) {
        Incident_log::report("subscription_refused", {{"peer", from.to_string()},
                                                      {"service", hex16(entry.service_id)},
                                                      {"instance", hex16(entry.instance_id)},
                                                      {"eventgroup", hex16(entry.eventgroup_id)},
                                                      {"reason", "negative acknowledgement"}});
        set_group_state(*found->second, SubscriptionState::kNotSubscribed, out);
        return;
    }
    set_group_state(*found->second, SubscriptionState::kSubscribed, out);
}

void Runtime::set_group_state(Subscription_group& group, SubscriptionState state, Outbox&)
{
    if (group.state == state) {
        return;
    }
    group.state = state;
    // Listeners only store the state, so they are told at once: a find handler that
    // runs next already sees it.
    for (const auto& listener : group.listeners) {
        listener.second.second->on_state(state);
    }
}

void Runtime::peer_rebooted(const Endpoint& peer, Outbox& out)
{
    std::vector<std::pair<std::uint16_t, std::uint16_t>> gone;
    for (const auto& item : remote_offers_) {
        if (item.second.sd_peer == peer) {
            gone.push_back(item.first);
        }
    }
    for (const auto& key : gone) {
        remove_remote_offer(key.first, key.second, "reboot_detected", out);
    }
    for (auto& item : local_offers_) {
        for (auto& group : item.second->subscribers) {
            for (auto subscriber = group.second.begin(); subscriber != group.second.end();) {
                const bool same_host = subscriber->first.v6 == peer.v6 && subscriber->first.address == peer.address;
                subscriber = same_host ? group.second.erase(subscriber) : std::next(subscriber);
            }
        }
    }
    unicast_sessions_.erase(peer.to_string());
}

void Runtime::remove_remote_offer(std::uint16_t service, std::uint16_t instance, const char* why, Outbox& out)
{
    const auto found = remote_offers_.find({service, instance});
    if (found == remote_offers_.end()) {
        return;
    }
    if (std::strcmp(why, "stop_offer") != 0) {
        Incident_log::report(why, {{"what", "offer"},
                                   {"peer", found->second.sd_peer.to_string()},
                                   {"service", hex16(service)},
                                   {"instance", hex16(instance)}});
    }
    remote_offers_.erase(found);
    for (auto pending = pending_.begin(); pending != pending_.end();) {
        if (pending->second->service != service || pending->second->instance != instance) {
            ++pending;
            continue;
        }
        auto handler = pending->second->handler;
        out.calls.push_back([handler] { handler(Response{false, {}, {}, "Service not available exception"}); });
        pending = pending_.erase(pending);
    }
    for (auto& item : groups_) {
        if (item.second->service == service && item.second->instance == instance) {
            item.second->requested = false;
            set_group_state(*item.second, SubscriptionState::kSubscriptionPending, out);
        }
    }
    for (auto& item : finds_) {
        if (item.second->service == service) {
            item.second->repetitions = 0;
            item.second->next_send = Clock::now() + initial_delay();
        }
    }
    report_finds(out);
}

std::vector<HandleType> Runtime::matching_offers(const Find& find) const
{
    std::vector<HandleType> handles;
    for (const auto& item : remote_offers_) {
        const HandleType& handle = item.second.handle;
        if (handle.service_id() == find.service &&
            (find.instance == someip::kAnyInstance || handle.instance_id() == find.instance) &&
            (find.major == someip::kAnyMajor || handle.major_version() == find.major)) {
            handles.push_back(handle);
        }
    }
    return handles;
}

void Runtime::report_finds(Outbox&)
{
    for (auto& item : finds_) {
        Find& find = *item.second;
        const std::vector<HandleType> handles = matching_offers(find);
        const std::set<HandleType> current(handles.begin(), handles.end());
        if (find.reported_once && current == find.reported) {
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

// ---------------------------------------------------------------- sending

Sd_entry Runtime::offer_entry(const Local_offer& offer, std::uint32_t ttl) const
{
    Sd_entry entry;
    entry.type = Entry_type::kOfferService;
    entry.service_id = offer.service.service_id;
    entry.instance_id = offer.instance;
    entry.major = offer.service.major;
    entry.minor = offer.service.minor;
    entry.ttl = ttl;
    entry.options.push_back(someip::Sd_option::udp_endpoint(offer.endpoint));
    return entry;
}

Sd_entry Runtime::subscribe_entry(const Subscription_group& group, std::uint32_t ttl) const
{
    Sd_entry entry;
    entry.type = Entry_type::kSubscribeEventgroup;
    entry.service_id = group.service;
    entry.instance_id = group.instance;
    entry.major = group.major;
    entry.ttl = ttl;
    entry.eventgroup_id = group.eventgroup;
    const auto own = data_sockets_.find(default_fd_);
    if (own != data_sockets_.end()) {
        entry.options.push_back(someip::Sd_option::udp_endpoint(own->second));
    }
    return entry;
}

void Runtime::send_sd(const Endpoint& to, bool multicast, std::vector<Sd_entry> entries)
{
    if (sd_unicast_fd_ < 0) {
        return;
    }
    const Sd_session_counter::Stamp stamp =
        multicast ? multicast_sessions_.next() : unicast_sessions_[to.to_string()].next();
    Sd_message message;
    message.reboot = stamp.reboot;
    message.unicast = true;
    message.entries = std::move(entries);
    Message_header header;
    header.service_id = someip::kSdServiceId;
    header.method_id = someip::kSdMethodId;
    header.client_id = 0;
    header.session_id = stamp.session;
    header.interface_version = 1;
    header.message_type = Message_type::kNotification;
    send_datagram(sd_unicast_fd_, to, header.encode(message.encode()));
}

void Runtime::send_datagram(int fd, const Endpoint& to, const std::vector<std::uint8_t>& bytes)
{
    if (fd < 0) {
        return;
    }
    sockaddr_storage address{};
    const socklen_t length = to.to_sockaddr(address);
    if (::sendto(fd, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&address), length) < 0) {
        Incident_log::report("send_failed", {{"peer", to.to_string()}, {"error", std::strerror(errno)}});
    }
}

// ---------------------------------------------------------------- sockets

namespace {
int open_udp(const Endpoint& local, bool reuse)
{
    const int fd = ::socket(local.v6 ? AF_INET6 : AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    const int one = 1;
    if (reuse) {
        (void)::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
        (void)::setsockopt(fd, SOL_SOCKET, SO_REUSEPORT, &one, sizeof one);
    }
    sockaddr_storage address{};
    const socklen_t length = local.to_sockaddr(address);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0) {
        const int saved = errno;
        (void)::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

Endpoint bound_endpoint(int fd)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    (void)::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
    return Endpoint::from_sockaddr(address);
}

// Multicast leaves and loops back through the interface that owns the unicast address,
// so that several processes on one host (even on loopback alone) see each other.
bool join_group(int fd, int send_fd, const Endpoint& group, const Endpoint& unicast)
{
    const int one = 1;
    if (!group.v6) {
        ip_mreq request{};
        std::memcpy(&request.imr_multiaddr, group.address.data(), 4);
        std::memcpy(&request.imr_interface, unicast.address.data(), 4);
        in_addr interface_address{};
        std::memcpy(&interface_address, unicast.address.data(), 4);
        return ::setsockopt(fd, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0 &&
               ::setsockopt(send_fd, IPPROTO_IP, IP_MULTICAST_IF, &interface_address, sizeof interface_address) == 0 &&
               ::setsockopt(send_fd, IPPROTO_IP, IP_MULTICAST_LOOP, &one, sizeof one) == 0;
    }
    ipv6_mreq request{};
    std::memcpy(&request.ipv6mr_multiaddr, group.address.data(), 16);
    request.ipv6mr_interface = 0;
    return ::setsockopt(fd, IPPROTO_IPV6, IPV6_JOIN_GROUP, &request, sizeof request) == 0 &&
           ::setsockopt(send_fd, IPPROTO_IPV6, IPV6_MULTICAST_LOOP, &one, sizeof one) == 0;
}
}  // namespace

bool Runtime::open_network(Clock::time_point now)
{
    network_retry_ = now + kNetworkRetry;
    auto fail = [this](const char* step) {
        Incident_log::report("network_unavailable", {{"step", step},
                                                     {"unicast", deployment_.unicast},
                                                     {"sd_group", deployment_.sd_multicast},
                                                     {"error", std::strerror(errno)},
                                                     {"retry_ms", 1000}});
        close_network();
        return false;
    };
    if (!Endpoint::parse(deployment_.unicast, deployment_.sd_port, unicast_) ||
        !Endpoint::parse(deployment_.sd_multicast, deployment_.sd_port, sd_group_) || unicast_.v6 != sd_group_.v6) {
        errno = EINVAL;
        return fail("parse addresses");
    }
    sd_unicast_fd_ = open_udp(unicast_, true);
    if (sd_unicast_fd_ < 0) {
        return fail("bind discovery unicast socket");
    }
    sd_multicast_fd_ = open_udp(sd_group_, true);
    if (sd_multicast_fd_ < 0) {
        return fail("bind discovery multicast socket");
    }
    if (!join_group(sd_multicast_fd_, sd_unicast_fd_, sd_group_, unicast_)) {
        return fail("join discovery multicast group");
    }
    default_fd_ = open_data_socket(deployment_.port);
    if (default_fd_ < 0) {
        return fail("bind data socket");
    }
    for (auto& item : local_offers_) {
        item.second->fd = -1;
        item.second->announced = false;
        item.second->next_send = now + initial_delay();
    }
    for (auto& item : finds_) {
        item.second->repetitions = 0;
        item.second->next_send = now + initial_delay();
    }
    return true;
}

int Runtime::open_data_socket(std::uint16_t port)
{
    for (const auto& item : data_sockets_) {
        if (port != 0 && item.second.port == port) {
            return item.first;
        }
    }
    Endpoint local = unicast_;
    local.port = port;
    const int fd = open_udp(local, false);
    if (fd >= 0) {
        data_sockets_[fd] = bound_endpoint(fd);
    }
    return fd;
}

bool Runtime::open_offer_socket(Local_offer& offer, Clock::time_point now)
{
    if (now < offer.next_socket_try) {
        return false;
    }
    offer.fd = offer.service.port == 0 ? default_fd_ : open_data_socket(offer.service.port);
    if (offer.fd < 0) {
        offer.next_socket_try = now + kNetworkRetry;
        Incident_log::report("network_unavailable", {{"step", "bind service socket"},
                                                     {"service", hex16(offer.service.service_id)},
                                                     {"port", offer.service.port},
                                                     {"error", std::strerror(errno)},
                                                     {"retry_ms", 1000}});
        return false;
    }
    offer.endpoint = data_sockets_[offer.fd];
    return true;
}

void Runtime::close_network()
{
    for (int* fd : {&sd_unicast_fd_, &sd_multicast_fd_}) {
        if (*fd >= 0) {
            (void)::close(*fd);
            *fd = -1;
        }
    }
    for (const auto& item : data_sockets_) {
        (void)::close(item.first);
    }
    data_sockets_.clear();
    default_fd_ = -1;
    network_up_ = false;
}

Runtime::Clock::duration Runtime::initial_delay()
{
    const Sd_timing& timing = deployment_.timing;
    std::uniform_int_distribution<std::uint32_t> pick(timing.initial_delay_min_ms, timing.initial_delay_max_ms);
    return std::chrono::milliseconds(pick(random_));
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

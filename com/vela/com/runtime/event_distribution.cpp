// SPDX-License-Identifier: Apache-2.0
// Events: this process's subscriptions to other nodes and the notifications they
// send, and the subscribers of this process's offers and what is sent to them.
#include <algorithm>

#include "vela/com/runtime/runtime_state.hpp"

namespace vela {
namespace com {
namespace runtime {

using someip::Entry_type;
using someip::Message_header;
using someip::Message_type;
using someip::Sd_entry;

std::uint64_t Runtime::subscribe(std::uint16_t service, std::uint16_t instance, std::uint8_t major,
                                 std::uint16_t eventgroup, std::uint16_t event,
                                 const std::shared_ptr<Event_listener>& listener)
{
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
    offer.notification_session = next_session(offer.notification_session);
    header.session_id = offer.notification_session;
    const std::vector<std::uint8_t> bytes = header.encode(payload);
    if (offer.fd < 0) {
        return;
    }
    for (const auto& subscriber : offer.subscribers[event.eventgroup]) {
        send_datagram(offer.fd, subscriber, bytes);
    }
}

void Runtime::handle_notification(const Message_header& header, const std::uint8_t* payload, std::size_t size,
                                  const Endpoint& from, Outbox& out)
{
    bool wanted = false;
    bool foreign = false;
    for (const auto& item : groups_) {
        if (item.second->service != header.service_id) {
            continue;
        }
        // Only the endpoint that offered the service may notify its subscribers.
        const auto offer = remote_offers_.find({item.second->service, item.second->instance});
        if (offer == remote_offers_.end() || offer->second.handle.endpoint() != from) {
            foreign = true;
            continue;
        }
        for (const auto& listener : item.second->listeners) {
            if (listener.second.first == header.method_id) {
                wanted = true;
                auto target = listener.second.second;
                std::vector<std::uint8_t> copy(payload, payload + size);
                out.calls.push_back([target, copy]() mutable { target->on_notification(std::move(copy)); });
            }
        }
    }
    if (!wanted) {
        Incident_log::report(foreign ? "foreign_notification" : "unknown_event",
                             {{"peer", from.to_string()},
                              {"service", hex16(header.service_id)},
                              {"event", hex16(header.method_id)}});
    }
}

void Runtime::handle_subscribe(const Sd_entry& entry, const Endpoint& from)
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
    } else if (!subscriber.same_host(from)) {
        // Otherwise anyone could point a provider's events at a third host.
        refusal = "endpoint option names another host";
    } else if (std::none_of(found->second->service.events.begin(), found->second->service.events.end(),
                            [&](const auto& event) { return event.second.eventgroup == entry.eventgroup_id; })) {
        refusal = "unknown eventgroup";
    }
    const Subscriber_key key{entry.service_id, entry.instance_id, entry.eventgroup_id, subscriber};
    if (entry.ttl == 0) {
        if (refusal == nullptr) {
            found->second->subscribers[entry.eventgroup_id].erase(subscriber);
            subscriber_expiry_.erase(key);
        }
        return;
    }
    std::set<Endpoint>* subscribers = refusal == nullptr ? &found->second->subscribers[entry.eventgroup_id] : nullptr;
    const bool is_new = subscribers != nullptr && subscribers->count(subscriber) == 0;
    if (is_new && subscribers->size() >= deployment_.limits.subscribers_per_eventgroup) {
        report_limit("subscribers_per_eventgroup", from, deployment_.limits.subscribers_per_eventgroup);
        refusal = "subscriber limit reached";
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
    subscribers->insert(subscriber);
    subscriber_expiry_.set(key, expiry_after(Clock::now(), entry.ttl));
    send_sd(from, false, {ack});
    if (is_new) {
        send_initial_fields(*found->second, entry.eventgroup_id, subscriber);
    }
}

void Runtime::expire_subscriber(const Subscriber_key& key)
{
    const auto offer = local_offers_.find({std::get<0>(key), std::get<1>(key)});
    if (offer == local_offers_.end() || offer->second->subscribers[std::get<2>(key)].erase(std::get<3>(key)) == 0) {
        return;
    }
    Incident_log::report("ttl_expired", {{"what", "subscription"},
                                         {"service", hex16(std::get<0>(key))},
                                         {"instance", hex16(std::get<1>(key))},
                                         {"eventgroup", hex16(std::get<2>(key))},
                                         {"subscriber", std::get<3>(key).to_string()}});
}

void Runtime::drop_subscribers_of(const Endpoint& host)
{
    for (auto& item : local_offers_) {
        for (auto& group : item.second->subscribers) {
            for (auto subscriber = group.second.begin(); subscriber != group.second.end();) {
                if (!subscriber->same_host(host)) {
                    ++subscriber;
                    continue;
                }
                subscriber_expiry_.erase(Subscriber_key{item.first.first, item.first.second, group.first, *subscriber});
                subscriber = group.second.erase(subscriber);
            }
        }
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
        offer.notification_session = next_session(offer.notification_session);
        header.session_id = offer.notification_session;
        send_datagram(offer.fd, subscriber, header.encode(item.second.second));
    }
}

void Runtime::handle_ack(const Sd_entry& entry, const Endpoint& from)
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
        set_group_state(*found->second, SubscriptionState::kNotSubscribed);
        return;
    }
    set_group_state(*found->second, SubscriptionState::kSubscribed);
}

void Runtime::set_group_state(Subscription_group& group, SubscriptionState state)
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

}  // namespace runtime
}  // namespace com
}  // namespace vela

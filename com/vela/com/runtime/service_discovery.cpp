// SPDX-License-Identifier: Apache-2.0
// Service discovery: discovery messages, the offers of other nodes, the answers to
// their finds, and the timing of this process's own offers.
#include "vela/com/runtime/runtime_state.hpp"

namespace vela {
namespace com {
namespace runtime {

using someip::Entry_type;
using someip::Message_header;
using someip::Message_type;
using someip::Sd_entry;
using someip::Sd_message;

bool Runtime::handle_sd_message(const Message_header& header, const std::uint8_t* payload, std::size_t size,
                                const Endpoint& from, bool multicast, Outbox& out)
{
    Sd_message message;
    std::string error;
    if (header.service_id != someip::kSdServiceId || header.method_id != someip::kSdMethodId ||
        !Sd_message::decode(payload, size, message, error)) {
        Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                                   {"service", hex16(header.service_id)},
                                                   {"method", hex16(header.method_id)},
                                                   {"reason", error.empty() ? "not a discovery message" : error}});
        return false;
    }
    if (reboot_detector_.observe(from.to_string(), multicast, header.session_id, message.reboot)) {
        reboot_detector_.forget(from.to_string());
        (void)reboot_detector_.observe(from.to_string(), multicast, header.session_id, message.reboot);
        Incident_log::report("reboot_detected", {{"peer", from.to_string()}, {"session", header.session_id}});
        peer_rebooted(from, out);
    }
    std::set<Instance_key> answers;
    for (const auto& entry : message.entries) {
        switch (entry.type) {
            case Entry_type::kFindService:
                handle_find(entry, answers);
                break;
            case Entry_type::kOfferService:
                handle_offer(entry, from, out);
                break;
            case Entry_type::kSubscribeEventgroup:
                handle_subscribe(entry, from);
                break;
            case Entry_type::kSubscribeEventgroupAck:
                handle_ack(entry, from);
                break;
            default:
                Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                                           {"reason", "unknown entry type"},
                                                           {"entry_type", static_cast<int>(entry.type)}});
        }
    }
    answer_finds(answers, from, message.unicast);
    return true;
}

void Runtime::handle_find(const Sd_entry& entry, std::set<Instance_key>& answers)
{
    for (const auto& item : local_offers_) {
        const Local_offer& offer = *item.second;
        const bool match = entry.service_id == offer.service.service_id &&
                           (entry.instance_id == someip::kAnyInstance || entry.instance_id == offer.instance) &&
                           (entry.major == someip::kAnyMajor || entry.major == offer.service.major) &&
                           (entry.minor == someip::kAnyMinor || entry.minor == offer.service.minor);
        if (match && offer.announced) {
            answers.insert(item.first);
        }
    }
}

// One offer per matching service for a whole datagram of finds: the sender's
// address can be forged, so a datagram must not buy more than that. The answer goes
// by unicast when the finder said it can take unicast, else to the group.
void Runtime::answer_finds(const std::set<Instance_key>& answers, const Endpoint& from, bool unicast)
{
    std::vector<Sd_entry> entries;
    for (const auto& key : answers) {
        if (entries.size() == deployment_.limits.find_answers_per_datagram) {
            report_limit("find_answers_per_datagram", from, deployment_.limits.find_answers_per_datagram);
            break;
        }
        entries.push_back(offer_entry(*local_offers_.at(key), deployment_.timing.ttl_s));
    }
    if (!entries.empty()) {
        send_sd(unicast ? from : sd_group_, !unicast, std::move(entries));
    }
}

void Runtime::handle_offer(const Sd_entry& entry, const Endpoint& from, Outbox& out)
{
    const Instance_key key{entry.service_id, entry.instance_id};
    const auto found = remote_offers_.find(key);
    if (entry.ttl == 0) {
        if (found != remote_offers_.end() && found->second.sd_peer == from) {
            remove_remote_offer(key, "stop_offer", out);
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
    const std::string peer = from.to_string();
    if (found == remote_offers_.end()) {
        const auto mine = offers_by_peer_.find(peer);
        if (remote_offers_.size() >= deployment_.limits.remote_offers) {
            report_limit("remote_offers", from, deployment_.limits.remote_offers);
            return;
        }
        if (mine != offers_by_peer_.end() && mine->second.size() >= deployment_.limits.remote_offers_per_peer) {
            report_limit("remote_offers_per_peer", from, deployment_.limits.remote_offers_per_peer);
            return;
        }
    } else if (found->second.sd_peer != from) {
        const auto previous = offers_by_peer_.find(found->second.sd_peer.to_string());
        previous->second.erase(key);
        if (previous->second.empty()) {
            offers_by_peer_.erase(previous);
        }
    }
    const HandleType handle(entry.service_id, entry.instance_id, entry.major, entry.minor, endpoint);
    const bool changed = found == remote_offers_.end() || found->second.handle != handle;
    remote_offers_[key] = Remote_offer{handle, from};
    offers_by_peer_[peer].insert(key);
    offer_expiry_.set(key, expiry_after(Clock::now(), entry.ttl));
    if (changed) {
        report_finds(entry.service_id);
    }
    for (auto group = groups_.lower_bound(Group_key{key.first, key.second, 0});
         group != groups_.end() && std::get<0>(group->first) == key.first && std::get<1>(group->first) == key.second;
         ++group) {
        group->second->provider_sd = from;
        group->second->requested = true;
        send_sd(from, false, {subscribe_entry(*group->second, deployment_.timing.ttl_s)});
    }
}

void Runtime::peer_rebooted(const Endpoint& peer, Outbox& out)
{
    const auto offers = offers_by_peer_.find(peer.to_string());
    if (offers != offers_by_peer_.end()) {
        const std::set<Instance_key> gone = offers->second;
        for (const auto& key : gone) {
            remove_remote_offer(key, "reboot_detected", out);
        }
    }
    drop_subscribers_of(peer);
    unicast_sessions_.erase(peer.to_string());
}

void Runtime::remove_remote_offer(const Instance_key& key, const char* why, Outbox& out)
{
    const auto found = remote_offers_.find(key);
    if (found == remote_offers_.end()) {
        return;
    }
    if (std::string(why) != "stop_offer") {
        Incident_log::report(why, {{"what", "offer"},
                                   {"peer", found->second.sd_peer.to_string()},
                                   {"service", hex16(key.first)},
                                   {"instance", hex16(key.second)}});
    }
    const auto peer = offers_by_peer_.find(found->second.sd_peer.to_string());
    if (peer != offers_by_peer_.end()) {
        peer->second.erase(key);
        if (peer->second.empty()) {
            offers_by_peer_.erase(peer);
        }
    }
    remote_offers_.erase(found);
    offer_expiry_.erase(key);
    std::vector<std::uint16_t> failed;
    for (const auto& pending : pending_) {
        if (pending.second->service == key.first && pending.second->instance == key.second) {
            failed.push_back(pending.first);
        }
    }
    for (const auto session : failed) {
        fail_pending(session, "Service not available exception", out);
    }
    for (auto group = groups_.lower_bound(Group_key{key.first, key.second, 0});
         group != groups_.end() && std::get<0>(group->first) == key.first && std::get<1>(group->first) == key.second;
         ++group) {
        group->second->requested = false;
        set_group_state(*group->second, SubscriptionState::kSubscriptionPending);
    }
    for (auto& item : finds_) {
        if (item.second->service == key.first) {
            item.second->repetitions = 0;
            item.second->next_send = Clock::now() + initial_delay();
        }
    }
    report_finds(key.first);
}

void Runtime::report_limit(const char* limit, const Endpoint& peer, std::uint32_t value)
{
    if (Incident_log::over_budget("limit_reached")) {
        return;
    }
    Incident_log::report("limit_reached", {{"limit", limit}, {"value", value}, {"peer", peer.to_string()}});
}

// ---------------------------------------------------------------- own offers

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

}  // namespace runtime
}  // namespace com
}  // namespace vela

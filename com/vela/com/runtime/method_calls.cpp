// SPDX-License-Identifier: Apache-2.0
// Method calls: requests sent and their answers matched, requests received and
// answered.
#include <algorithm>

#include "vela/com/runtime/runtime_state.hpp"

namespace vela {
namespace com {
namespace runtime {

using someip::Message_header;
using someip::Message_type;
using someip::Return_code;

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
        next_session_ = next_session(next_session_);
    } while (pending_.count(header.session_id) != 0);
    header.interface_version = offer->second.handle.major_version();
    header.message_type = Message_type::kRequest;
    auto pending = std::make_shared<Pending_request>();
    pending->service = service;
    pending->instance = instance;
    pending->handler = std::move(handler);
    pending_[header.session_id] = pending;
    request_deadlines_.set(header.session_id,
                           Clock::now() + std::chrono::milliseconds(deployment_.request_timeout_ms));
    send_datagram(default_fd_, offer->second.handle.endpoint(), header.encode(payload));
    wake();
    return true;
}

void Runtime::handle_data(const Message_header& header, const std::uint8_t* payload, std::size_t size,
                          const Endpoint& from, int fd, Outbox& out)
{
    switch (header.message_type) {
        case Message_type::kRequest:
        case Message_type::kRequestNoReturn:
            handle_request(header, payload, size, from, fd);
            return;
        case Message_type::kResponse:
        case Message_type::kError:
            handle_response(header, payload, size, from, out);
            return;
        case Message_type::kNotification:
            handle_notification(header, payload, size, from, out);
            return;
    }
    Incident_log::report("malformed_message", {{"peer", from.to_string()},
                                               {"service", hex16(header.service_id)},
                                               {"method", hex16(header.method_id)},
                                               {"reason", "unknown message type"},
                                               {"message_type", static_cast<int>(header.message_type)}});
}

void Runtime::handle_response(const Message_header& header, const std::uint8_t* payload, std::size_t size,
                              const Endpoint& from, Outbox& out)
{
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
    request_deadlines_.erase(header.session_id);
    Response response{true, header, std::vector<std::uint8_t>(payload, payload + size), {}};
    out.calls.push_back([handler, response]() mutable { handler(std::move(response)); });
}

void Runtime::fail_pending(std::uint16_t session, const char* why, Outbox& out)
{
    const auto pending = pending_.find(session);
    if (pending == pending_.end()) {
        return;
    }
    auto handler = pending->second->handler;
    const std::string failure = why;
    out.calls.push_back([handler, failure] { handler(Response{false, {}, {}, failure}); });
    pending_.erase(pending);
    request_deadlines_.erase(session);
}

void Runtime::handle_request(const Message_header& header, const std::uint8_t* payload, std::size_t size,
                             const Endpoint& from, int fd)
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

}  // namespace runtime
}  // namespace com
}  // namespace vela

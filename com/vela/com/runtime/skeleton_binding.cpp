// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/skeleton_binding.hpp"

#include <stdexcept>

#include "vela/com/runtime/component_singleton.hpp"
#include "vela/com/runtime/incident_log.hpp"
#include "vela/com/someip/serialization_error.hpp"

namespace vela {
namespace com {
namespace runtime {

// Shared with the runtime's request handler, which may outlive the skeleton briefly.
struct Skeleton_binding::Dispatch : std::enable_shared_from_this<Dispatch> {
    MethodCallProcessingMode mode = MethodCallProcessingMode::kEvent;
    std::shared_ptr<Worker_pool> pool;
    std::shared_ptr<Strand> strand;
    std::mutex mutex;
    std::condition_variable idle;
    bool open = true;
    int running = 0;
    std::map<std::uint16_t, Method> methods;
    std::deque<std::function<void()>> queued;

    void on_request(const someip::Message_header& header, std::vector<std::uint8_t> payload, Runtime::Reply reply)
    {
        auto self = shared_from_this();
        auto task = [self, header, payload = std::move(payload), reply = std::move(reply)] {
            self->run(header, payload, reply);
        };
        switch (mode) {
            case MethodCallProcessingMode::kEvent:
                pool->post(std::move(task));
                break;
            case MethodCallProcessingMode::kEventSingleThread:
                strand->post(std::move(task));
                break;
            case MethodCallProcessingMode::kPoll: {
                std::lock_guard<std::mutex> lock(mutex);
                queued.push_back(std::move(task));
                break;
            }
        }
    }

    static void failed(const char* incident, const someip::Message_header& header, std::size_t size, const char* what)
    {
        Incident_log::report(incident, {{"service", Incident_log::hex(header.service_id)},
                                        {"method", Incident_log::hex(header.method_id)},
                                        {"client", Incident_log::hex(header.client_id)},
                                        {"session", header.session_id},
                                        {"size", size},
                                        {"what", what}});
    }

    void run(const someip::Message_header& header, const std::vector<std::uint8_t>& payload,
             const Runtime::Reply& reply)
    {
        Method method;
        {
            std::lock_guard<std::mutex> lock(mutex);
            const auto found = methods.find(header.method_id);
            if (!open || found == methods.end()) {
                reply(someip::Return_code::kNotReady, {});
                return;
            }
            method = found->second;
            ++running;
        }
        try {
            reply(someip::Return_code::kOk, method(payload));
        } catch (const someip::Serialization_error& e) {
            failed("decode_failure", header, payload.size(), e.what());
            reply(someip::Return_code::kMalformedMessage, {});
        } catch (const std::exception& e) {
            failed("method_failure", header, payload.size(), e.what());
            reply(someip::Return_code::kNotOk, {});
        }
        std::lock_guard<std::mutex> lock(mutex);
        --running;
        idle.notify_all();
    }
};

Skeleton_binding::Skeleton_binding(const std::string& service_name, const InstanceSpecifier& instance,
                                   MethodCallProcessingMode mode)
    : runtime_(Component_singleton::acquire()), dispatch_(std::make_shared<Dispatch>())
{
    const Service_deployment* service = runtime_->service(service_name);
    if (service == nullptr) {
        throw std::runtime_error("no deployment for service " + service_name);
    }
    service_ = *service;
    if (!service_.instance_id(instance.ToString(), instance_id_)) {
        throw std::runtime_error("unknown instance specifier " + instance.ToString() + " for " + service_name);
    }
    dispatch_->mode = mode;
    dispatch_->pool = runtime_->pool();
    dispatch_->strand = runtime_->make_strand();
}

Skeleton_binding::~Skeleton_binding()
{
    stop_offer();
    close();
}

void Skeleton_binding::register_method(const std::string& method_name, Method method)
{
    std::lock_guard<std::mutex> lock(dispatch_->mutex);
    dispatch_->methods[service_.method_id(method_name)] = std::move(method);
}

void Skeleton_binding::offer()
{
    if (offered_) {
        return;
    }
    offered_ = true;
    auto dispatch = dispatch_;
    runtime_->offer(
        service_, instance_id_,
        [dispatch](const someip::Message_header& header, std::vector<std::uint8_t> payload, Runtime::Reply reply) {
            dispatch->on_request(header, std::move(payload), std::move(reply));
        });
}

void Skeleton_binding::stop_offer()
{
    if (!offered_) {
        return;
    }
    offered_ = false;
    runtime_->stop_offer(service_.service_id, instance_id_);
}

void Skeleton_binding::send_event(const std::string& event_name, std::vector<std::uint8_t> payload)
{
    runtime_->notify(service_.service_id, instance_id_, service_.event(event_name), std::move(payload));
}

bool Skeleton_binding::process_next_method_call()
{
    std::function<void()> task;
    {
        std::lock_guard<std::mutex> lock(dispatch_->mutex);
        if (dispatch_->queued.empty()) {
            return false;
        }
        task = std::move(dispatch_->queued.front());
        dispatch_->queued.pop_front();
    }
    task();
    return true;
}

void Skeleton_binding::close()
{
    std::unique_lock<std::mutex> lock(dispatch_->mutex);
    dispatch_->open = false;
    dispatch_->queued.clear();
    if (runtime_->pool()->runs_on_worker()) {
        return;  // called from inside a method: waiting would wait for ourselves
    }
    dispatch_->idle.wait(lock, [this] { return dispatch_->running == 0; });
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

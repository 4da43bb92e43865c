// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_PROXY_METHOD_HPP
#define VELA_COM_RUNTIME_PROXY_METHOD_HPP

#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "vela/com/runtime/incident_log.hpp"
#include "vela/com/runtime/proxy_binding.hpp"

namespace vela {
namespace com {
namespace runtime {

constexpr const char* kServiceNotAvailable = "Service not available exception";
constexpr const char* kTransportException = "Transport exception";

// The consumer's end of one method: sends the request and turns the answer into the
// future's value or exception. The answer is decoded on the I/O thread, so a caller
// may wait on the future from any handler.
template <typename Output>
class Proxy_method {
public:
    using Decoder = std::function<Output(const std::vector<std::uint8_t>&)>;

    Proxy_method(std::shared_ptr<Proxy_binding> binding, const std::string& method_name, Decoder decode)
        : binding_(std::move(binding)),
          method_id_(binding_->service().method_id(method_name)),
          decode_(std::make_shared<Decoder>(std::move(decode)))
    {
    }

protected:
    // Throws "Service not available exception" when the instance is not offered.
    std::future<Output> call(std::vector<std::uint8_t> payload)
    {
        auto promise = std::make_shared<std::promise<Output>>();
        auto decode = decode_;
        send(
            std::move(payload),
            [promise, decode](const std::vector<std::uint8_t>& answer) { promise->set_value((*decode)(answer)); },
            [promise](std::exception_ptr error) { promise->set_exception(error); });
        return promise->get_future();
    }

    // For methods whose answer carries no value: the future becomes ready once the answer
    // arrives (the decoder only checks it).
    std::future<void> call_without_output(std::vector<std::uint8_t> payload)
    {
        auto promise = std::make_shared<std::promise<void>>();
        auto decode = decode_;
        send(
            std::move(payload),
            [promise, decode](const std::vector<std::uint8_t>& answer) {
                (void)(*decode)(answer);
                promise->set_value();
            },
            [promise](std::exception_ptr error) { promise->set_exception(error); });
        return promise->get_future();
    }

private:
    using Accept = std::function<void(const std::vector<std::uint8_t>&)>;
    using Fail = std::function<void(std::exception_ptr)>;

    void send(std::vector<std::uint8_t> payload, Accept accept, Fail fail)
    {
        const HandleType& handle = binding_->handle();
        const std::uint16_t service = handle.service_id();
        const std::uint16_t method = method_id_;
        const bool sent =
            binding_->runtime()->send_request(service, handle.instance_id(), method_id_, std::move(payload),
                                              [accept, fail, service, method](Runtime::Response response) {
                                                  complete(response, accept, fail, service, method);
                                              });
        if (!sent) {
            throw std::runtime_error(kServiceNotAvailable);
        }
    }

    static void complete(const Runtime::Response& response, const Accept& accept, const Fail& fail,
                         std::uint16_t service, std::uint16_t method)
    {
        if (!response.delivered) {
            fail(std::make_exception_ptr(std::runtime_error(response.failure)));
            return;
        }
        if (response.header.message_type != someip::Message_type::kResponse ||
            response.header.return_code != someip::Return_code::kOk) {
            fail(std::make_exception_ptr(std::runtime_error(std::string(kTransportException) + ": " +
                                                            someip::to_string(response.header.return_code))));
            return;
        }
        try {
            accept(response.payload);
        } catch (const std::exception& e) {
            Incident_log::report("decode_failure", {{"service", Incident_log::hex(service)},
                                                    {"method", Incident_log::hex(method)},
                                                    {"size", response.payload.size()},
                                                    {"what", e.what()}});
            fail(std::make_exception_ptr(std::runtime_error(kTransportException)));
        }
    }

    std::shared_ptr<Proxy_binding> binding_;
    std::uint16_t method_id_;
    std::shared_ptr<Decoder> decode_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
// Plays the providers and the diagnostic manager on a SOME/IP network: offers
// DiagnosticDataDistribution instance 1 (answering data id 1293 with a byte that stdin
// can change, or with --no-answer holding every request unanswered until quit) and, with
// --monitor, subscribes to the diagnostic monitor's MonitorAction and calls its InitMonitor.
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_skeleton.hpp"
#include "vela/com/runtime/component_singleton.hpp"
#include "vela/dm/dem/diagnosticmonitor_proxy.hpp"

namespace {
namespace ddd = lumo::services::diagnosticdatadistribution;
namespace dem = vela::dm::dem;
using vela::com::runtime::InstanceSpecifier;

constexpr std::uint64_t kDltActivationId = 1293;
std::mutex output_mutex;

void say(const std::string& line)
{
    std::lock_guard<std::mutex> lock(output_mutex);
    std::cout << line << std::endl;
}

class Data_distribution : public ddd::skeleton::DiagnosticDataDistributionSkeleton {
public:
    Data_distribution(std::uint8_t value, bool answer)
        : DiagnosticDataDistributionSkeleton(InstanceSpecifier("1"),
                                             vela::com::runtime::MethodCallProcessingMode::kEvent),
          value_(value),
          answer_(answer)
    {
    }

    // A held request must be answered before the runtime goes down: its worker waits on it.
    void release_held()
    {
        std::lock_guard<std::mutex> lock(held_mutex_);
        getDiagnosticDataValuesOutput refused;
        refused.returnCode = 1;
        for (auto& promise : held_) {
            promise.set_value(refused);
        }
        held_.clear();
    }

    void set(std::uint8_t value)
    {
        value_ = value;
        ddd::datatypes::DT_dataValuesHash_struct element;
        element.item1 = static_cast<std::uint32_t>(kDltActivationId);
        element.item2 = value;
        dataValuesHash.Update({element});
    }

    std::future<getDiagnosticDataValuesOutput> getDiagnosticDataValues(std::uint32_t arg,
                                                                       const ddd::datatypes::DT_ListOfIds& ids) override
    {
        std::promise<getDiagnosticDataValuesOutput> promise;
        if (!answer_) {
            say("request getDiagnosticDataValues " + std::to_string(arg) + " ids " + std::to_string(ids.size()) +
                " held");
            auto future = promise.get_future();
            std::lock_guard<std::mutex> lock(held_mutex_);
            held_.push_back(std::move(promise));
            return future;
        }
        getDiagnosticDataValuesOutput output;
        output.returnCode = 1;
        if (ids.size() == 1 && ids.front() == kDltActivationId) {
            output.dataValues = {value_.load()};
            output.returnCode = 0;
        }
        say("request getDiagnosticDataValues " + std::to_string(arg) + " ids " + std::to_string(ids.size()) +
            " -> value " + std::to_string(value_.load()) + " returnCode " + std::to_string(output.returnCode));
        promise.set_value(output);
        return promise.get_future();
    }

    std::future<getDiagnosticDataOutput> getDiagnosticData(std::uint32_t, std::uint32_t) override
    {
        std::promise<getDiagnosticDataOutput> promise;
        promise.set_value(getDiagnosticDataOutput{{}, 1});
        return promise.get_future();
    }

private:
    std::atomic<std::uint8_t> value_;
    const bool answer_;
    std::mutex held_mutex_;
    std::vector<std::promise<getDiagnosticDataValuesOutput>> held_;
};

struct Monitor_client {
    std::mutex mutex;
    std::shared_ptr<dem::proxy::DiagnosticMonitorProxy> proxy;
    vela::com::runtime::FindServiceHandle search;

    void start()
    {
        search = dem::proxy::DiagnosticMonitorProxy::StartFindService(
            [this](const std::vector<vela::com::runtime::HandleType>& handles) { found(handles); },
            InstanceSpecifier("12452"));
    }

    void found(const std::vector<vela::com::runtime::HandleType>& handles)
    {
        std::lock_guard<std::mutex> lock(mutex);
        if (handles.empty()) {
            say("monitor stopped");
            proxy.reset();
            return;
        }
        say("monitor offered " + handles.front().to_string());
        proxy = std::make_shared<dem::proxy::DiagnosticMonitorProxy>(handles.front());
        auto current = proxy;
        proxy->MonitorAction.SetReceiveHandler([current] {
            current->MonitorAction.GetNewSamples(
                [](vela::com::runtime::SamplePtr<const dem::MonitorActionType> sample) {
                    say("MonitorAction " + std::to_string(static_cast<int>(*sample)));
                },
                16);
        });
        proxy->MonitorAction.Subscribe(16);
    }

    void init(int reason)
    {
        std::shared_ptr<dem::proxy::DiagnosticMonitorProxy> current;
        {
            std::lock_guard<std::mutex> lock(mutex);
            current = proxy;
        }
        if (!current) {
            say("InitMonitor " + std::to_string(reason) + " failed: monitor not found");
            return;
        }
        try {
            current->InitMonitor(static_cast<dem::InitMonitorReasonType>(reason)).get();
            say("InitMonitor " + std::to_string(reason) + " done");
        } catch (const std::exception& e) {
            say("InitMonitor " + std::to_string(reason) + " failed: " + e.what());
        }
    }
};

// A whole decimal number or nothing: "1x" is refused, not read as 1.
bool parse_number(const std::string& text, long& out)
{
    char* end = nullptr;
    errno = 0;
    out = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && errno == 0 && *end == '\0';
}

int usage()
{
    std::cerr << "usage: strata-someip-offer [--value N] [--monitor] [--no-offer] [--no-answer]\n"
                 "  stdin commands: <N> | value N (set the byte of id 1293 and notify), offer, stop,\n"
                 "                  init R (call InitMonitor with reason R), quit\n"
                 "  environment: STRATA_COM_DEPLOYMENT (deployment file), STRATA_COM_UNICAST (own address)\n";
    return 2;
}
}  // namespace

int main(int argc, char** argv)
{
    long value = 1;
    bool monitor = false;
    bool offer = true;
    bool answer = true;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--value" && i + 1 < argc) {
            if (!parse_number(argv[++i], value) || value < 0 || value > 255) {
                return usage();
            }
        } else if (arg == "--monitor") {
            monitor = true;
        } else if (arg == "--no-offer") {
            offer = false;
        } else if (arg == "--no-answer") {
            answer = false;
        } else {
            return usage();
        }
    }
    vela::com::runtime::Component_singleton::startup(false, "");
    auto provider = std::make_unique<Data_distribution>(static_cast<std::uint8_t>(value), answer);
    provider->set(static_cast<std::uint8_t>(value));
    if (offer) {
        provider->OfferService();
        say("offering DiagnosticDataDistribution instance 1 value " + std::to_string(value));
    }
    Monitor_client client;
    if (monitor) {
        client.start();
    }
    std::string line;
    while (std::getline(std::cin, line)) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        if (command.empty()) {
            continue;
        }
        if (command == "quit") {
            break;
        } else if (command == "offer") {
            provider->OfferService();
            say("offered");
        } else if (command == "stop") {
            provider->StopOfferService();
            say("stopped");
        } else if (command == "init") {
            std::string reason;
            words >> reason;
            long number = 0;
            if (!parse_number(reason, number) || number < 0 || number > 255) {
                say("invalid reason " + reason);
                continue;
            }
            client.init(static_cast<int>(number));
        } else {
            const std::string text = command == "value" ? (words >> command, command) : command;
            long number = 0;
            if (!parse_number(text, number) || number < 0 || number > 255) {
                say("invalid command " + line);
                continue;
            }
            provider->set(static_cast<std::uint8_t>(number));
            say("value " + text);
        }
    }
    if (monitor) {
        dem::proxy::DiagnosticMonitorProxy::StopFindService(client.search);
    }
    provider->StopOfferService();
    provider->release_held();
    {
        std::lock_guard<std::mutex> lock(client.mutex);
        client.proxy.reset();
    }
    vela::com::runtime::Component_singleton::shutdown();
    provider.reset();
    return 0;
}

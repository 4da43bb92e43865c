// SPDX-License-Identifier: Apache-2.0
// Looks for a service on the SOME/IP network and prints what it sees: offers, their
// end, and each notification (for DiagnosticDataDistribution followed by the answer
// of getDiagnosticDataValues for id 1293).
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <string>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "vela/com/runtime/component_singleton.hpp"
#include "vela/dm/dem/diagnosticmonitor_proxy.hpp"

namespace {
namespace ddd = lumo::services::diagnosticdatadistribution;
namespace dem = vela::dm::dem;
using vela::com::runtime::HandleType;
using vela::com::runtime::InstanceSpecifier;

std::mutex mutex;
std::condition_variable changed;
long notifications = 0;

void say(const std::string& line)
{
    std::lock_guard<std::mutex> lock(mutex);
    std::cout << line << std::endl;
}

void count()
{
    std::lock_guard<std::mutex> lock(mutex);
    ++notifications;
    changed.notify_all();
}

template <typename Proxy, typename Subscribe>
vela::com::runtime::FindServiceHandle watch(const std::string& instance, std::shared_ptr<Proxy>& proxy,
                                            Subscribe subscribe)
{
    return Proxy::StartFindService(
        [&proxy, subscribe](const std::vector<HandleType>& handles) {
            if (handles.empty()) {
                say("stopped");
                proxy.reset();
                return;
            }
            for (const auto& handle : handles) {
                say("offered " + handle.to_string());
            }
            proxy = std::make_shared<Proxy>(handles.front());
            subscribe(proxy);
        },
        InstanceSpecifier(instance));
}

void subscribe_data(const std::shared_ptr<ddd::proxy::DiagnosticDataDistributionProxy>& proxy)
{
    std::weak_ptr<ddd::proxy::DiagnosticDataDistributionProxy> weak = proxy;
    proxy->dataValuesHash.SetReceiveHandler([weak] {
        auto current = weak.lock();
        if (!current) {
            return;
        }
        current->dataValuesHash.GetNewSamples(
            [](vela::com::runtime::SamplePtr<const ddd::datatypes::DT_dataValuesHash> sample) {
                say("notification dataValuesHash elements " + std::to_string(sample->size()));
            },
            1);
        try {
            const auto output = current->getDiagnosticDataValues(0, {1293}).get();
            say("getDiagnosticDataValues returnCode " + std::to_string(output.returnCode) + " value " +
                (output.dataValues.empty() ? std::string("none") : std::to_string(output.dataValues.front())));
        } catch (const std::exception& e) {
            say(std::string("getDiagnosticDataValues failed: ") + e.what());
        }
        count();
    });
    proxy->dataValuesHash.Subscribe(1);
}

void subscribe_monitor(const std::shared_ptr<dem::proxy::DiagnosticMonitorProxy>& proxy)
{
    std::weak_ptr<dem::proxy::DiagnosticMonitorProxy> weak = proxy;
    proxy->MonitorAction.SetReceiveHandler([weak] {
        auto current = weak.lock();
        if (!current) {
            return;
        }
        current->MonitorAction.GetNewSamples(
            [](vela::com::runtime::SamplePtr<const dem::MonitorActionType> sample) {
                say("MonitorAction " + std::to_string(static_cast<int>(*sample)));
            },
            16);
        count();
    });
    proxy->MonitorAction.Subscribe(16);
}

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
    std::cerr << "usage: strata-someip-find [--service data|monitor] [--count N] [--timeout SECONDS]\n"
                 "  prints offers and notifications; ends after N notifications or the timeout (exit 1)\n";
    return 2;
}
}  // namespace

int main(int argc, char** argv)
{
    std::string service = "data";
    long wanted = -1;
    long timeout_s = 3600;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string arg = argv[i];
        if (arg == "--service") {
            service = argv[i + 1];
        } else if (arg == "--count") {
            if (!parse_number(argv[i + 1], wanted)) {
                return usage();
            }
        } else if (arg == "--timeout") {
            if (!parse_number(argv[i + 1], timeout_s) || timeout_s < 0) {
                return usage();
            }
        } else {
            return usage();
        }
    }
    if (argc % 2 == 0 || (service != "data" && service != "monitor")) {
        return usage();
    }
    vela::com::runtime::Component_singleton::startup(false, "");
    std::shared_ptr<ddd::proxy::DiagnosticDataDistributionProxy> data;
    std::shared_ptr<dem::proxy::DiagnosticMonitorProxy> monitor;
    const auto search =
        service == "data" ? watch("1", data, subscribe_data) : watch("12452", monitor, subscribe_monitor);
    bool done = false;
    {
        std::unique_lock<std::mutex> lock(mutex);
        done = changed.wait_for(lock, std::chrono::seconds(timeout_s),
                                [wanted] { return wanted >= 0 && notifications >= wanted; });
    }
    if (service == "data") {
        ddd::proxy::DiagnosticDataDistributionProxy::StopFindService(search);
    } else {
        dem::proxy::DiagnosticMonitorProxy::StopFindService(search);
    }
    vela::com::runtime::Component_singleton::shutdown();
    data.reset();
    monitor.reset();
    return done ? 0 : 1;
}

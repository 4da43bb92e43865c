// SPDX-License-Identifier: Apache-2.0
// Measures the runtime on loopback: method round trip, notification latency,
// offer-to-find time, decode throughput, idle CPU and resident memory.
//   com_runtime_bench [calls]      (as root it runs in a private network namespace)
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_skeleton.hpp"
#include "com/bench/private_network.hpp"
#include "com/bench/process_figures.hpp"
#include "vela/com/runtime/component_singleton.hpp"

namespace {
using bench::bring_loopback_up;
using bench::cpu_seconds;
using bench::rss_kib;
namespace ddd = lumo::services::diagnosticdatadistribution;
using Clock = std::chrono::steady_clock;
using vela::com::runtime::Component_singleton;
using vela::com::runtime::InstanceSpecifier;

std::uint64_t now_ns()
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count());
}

void report(const char* what, std::vector<double> micros)
{
    std::sort(micros.begin(), micros.end());
    const auto at = [&](double q) {
        return micros[static_cast<std::size_t>(q * static_cast<double>(micros.size() - 1))];
    };
    std::printf("%-28s n=%zu median %.1f us  p99 %.1f us  max %.1f us\n", what, micros.size(), at(0.5), at(0.99),
                micros.back());
}

std::string deployment(const char* unicast)
{
    return std::string(R"({"network": {"unicast": ")") + unicast + R"("},
        "service_discovery": {"initial_delay_min_ms": 0, "initial_delay_max_ms": 0, "repetitions_base_delay_ms": 30,
                              "repetitions_max": 3, "cyclic_offer_delay_ms": 1000, "ttl_s": 3}})";
}

class Provider : public ddd::skeleton::DiagnosticDataDistributionSkeleton {
public:
    Provider() : DiagnosticDataDistributionSkeleton(InstanceSpecifier("1")) {}
    std::future<getDiagnosticDataValuesOutput> getDiagnosticDataValues(std::uint32_t,
                                                                       const ddd::datatypes::DT_ListOfIds&) override
    {
        std::promise<getDiagnosticDataValuesOutput> answer;
        answer.set_value({0, 0, 0, 0, {1}, 0});
        return answer.get_future();
    }
    // Sends one notification stamped with the time of sending.
    std::future<getDiagnosticDataOutput> getDiagnosticData(std::uint32_t, std::uint32_t) override
    {
        ddd::datatypes::DT_dataValuesHash_struct element;
        element.item1 = 1293;  // members are matched by position: the earlier ones must be present
        element.item2 = 1;
        element.item3 = now_ns();
        dataValuesHash.Update({element});
        std::promise<getDiagnosticDataOutput> answer;
        answer.set_value({});
        return answer.get_future();
    }
};

int run_provider(int ready_fd)
{
    Component_singleton::startup(false, deployment("127.0.0.1"));
    Provider provider;
    const std::uint64_t offered_at = now_ns();
    provider.OfferService();
    (void)!write(ready_fd, &offered_at, sizeof offered_at);
    pause();
    return 0;
}

void bench_decode(std::size_t data_size)
{
    ddd::DiagnosticDataDistribution::getDiagnosticDataValues::Output output{
        1, 2, 3, 4, std::vector<std::uint8_t>(data_size, 7), 0};
    const std::vector<std::uint8_t> bytes = ddd::serialization::encode(output);
    const int rounds = 200000;
    std::size_t sink = 0;
    const auto start = Clock::now();
    for (int i = 0; i < rounds; ++i) {
        sink += ddd::serialization::decode_getDiagnosticDataValues_output(bytes.data(), bytes.size()).dataValues.size();
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::printf("%-28s %.0f MB/s (%zu-byte Output, %d decodes, check %zu)\n", "decode getDiagnosticDataValues",
                static_cast<double>(bytes.size()) * rounds / seconds / 1e6, bytes.size(), rounds, sink);
}
}  // namespace

int main(int argc, char** argv)
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    const int calls = argc > 1 ? std::atoi(argv[1]) : 2000;
    if (::unshare(CLONE_NEWNET) == 0) {
        bring_loopback_up();
    } else {
        std::printf("note: not root, using the host's loopback and discovery port\n");
    }
    bench_decode(1);
    bench_decode(1024);

    int ready[2];
    if (pipe(ready) != 0) {
        return 1;
    }
    const long rss_before = rss_kib();
    const pid_t child = fork();
    if (child == 0) {
        return run_provider(ready[1]);
    }
    Component_singleton::startup(false, deployment("127.0.0.2"));
    std::mutex mutex;
    std::condition_variable found_cv;
    std::vector<vela::com::runtime::HandleType> found;
    std::uint64_t found_at = 0;
    auto search = ddd::proxy::DiagnosticDataDistributionProxy::StartFindService(
        [&](std::vector<vela::com::runtime::HandleType> handles) {
            std::lock_guard<std::mutex> lock(mutex);
            if (!handles.empty() && found.empty()) {
                found_at = now_ns();
                found = handles;
                found_cv.notify_all();
            }
        },
        InstanceSpecifier("1"));
    std::uint64_t offered_at = 0;
    (void)!read(ready[0], &offered_at, sizeof offered_at);
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!found_cv.wait_for(lock, std::chrono::seconds(5), [&] { return !found.empty(); })) {
            std::printf("service not found\n");
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
            return 1;
        }
    }
    std::printf("%-28s %.2f ms (initial delay 0 ms)\n", "offer to find callback",
                static_cast<double>(found_at - offered_at) / 1e6);

    ddd::proxy::DiagnosticDataDistributionProxy proxy(found.front());
    std::vector<double> rtt;
    for (int i = 0; i < calls; ++i) {
        const std::uint64_t start = now_ns();
        (void)proxy.getDiagnosticDataValues(0, {1293}).get();
        rtt.push_back(static_cast<double>(now_ns() - start) / 1e3);
    }
    report("method round trip", rtt);

    std::vector<double> latency;
    std::mutex sample_mutex;
    std::condition_variable sample_cv;
    proxy.dataValuesHash.SetReceiveHandler([&] {
        const std::uint64_t arrived = now_ns();
        proxy.dataValuesHash.GetNewSamples(
            [&](vela::com::runtime::SamplePtr<const ddd::datatypes::DT_dataValuesHash> sample) {
                std::lock_guard<std::mutex> lock(sample_mutex);
                if (!sample->empty() && sample->front().item3) {
                    latency.push_back(static_cast<double>(arrived - *sample->front().item3) / 1e3);
                }
                sample_cv.notify_all();
            },
            1);
    });
    proxy.dataValuesHash.Subscribe(1);
    {
        std::unique_lock<std::mutex> lock(sample_mutex);
        (void)sample_cv.wait_for(lock, std::chrono::seconds(2), [&] { return !latency.empty(); });
        latency.clear();
    }
    for (int i = 0; i < calls / 4; ++i) {
        (void)proxy.getDiagnosticData(0, 0).get();
        std::unique_lock<std::mutex> lock(sample_mutex);
        (void)sample_cv.wait_for(lock, std::chrono::seconds(1),
                                 [&] { return latency.size() > static_cast<std::size_t>(i); });
    }
    proxy.dataValuesHash.UnsetReceiveHandler();
    report("notification latency", latency);

    const long rss_after = rss_kib();
    const double cpu_start = cpu_seconds();
    const auto idle_start = Clock::now();
    std::this_thread::sleep_for(std::chrono::seconds(10));
    const double idle_cpu =
        (cpu_seconds() - cpu_start) / std::chrono::duration<double>(Clock::now() - idle_start).count();
    std::printf("%-28s %.3f %% of a core (consumer subscribed, provider offering every 1 s)\n", "idle CPU",
                idle_cpu * 100.0);
    std::printf("%-28s %ld KiB (runtime started, one search, one proxy subscribed)\n", "RSS added",
                rss_after - rss_before);

    ddd::proxy::DiagnosticDataDistributionProxy::StopFindService(search);
    Component_singleton::shutdown();
    kill(child, SIGTERM);
    waitpid(child, nullptr, 0);
    return 0;
}

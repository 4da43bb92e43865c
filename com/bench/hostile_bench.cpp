// SPDX-License-Identifier: Apache-2.0
// Measures what traffic from other nodes costs the runtime: the CPU of a discovery
// batch with many offers already seen, InitMonitor round trips during a discovery
// flood, and resident memory after forged subscriptions. Runs in a private network
// namespace (needs root) so that peers can take any 127/8 address.
//   com_hostile_bench
#include <arpa/inet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "com/bench/private_network.hpp"
#include "com/bench/process_figures.hpp"
#include "vela/com/runtime/component_singleton.hpp"
#include "vela/com/someip/message_header.hpp"
#include "vela/com/someip/sd_message.hpp"
#include "vela/dm/dem/diagnosticmonitor_skeleton.hpp"

namespace {
using bench::bring_loopback_up;
using bench::cpu_seconds;
using bench::rss_kib;
namespace someip = vela::com::someip;
namespace ddd = lumo::services::diagnosticdatadistribution;
using vela::com::runtime::Component_singleton;
using vela::com::runtime::Endpoint;
using vela::com::runtime::InstanceSpecifier;
using Clock = std::chrono::steady_clock;
using Bytes = std::vector<std::uint8_t>;

Endpoint endpoint(const std::string& address, std::uint16_t port)
{
    Endpoint parsed;
    (void)Endpoint::parse(address, port, parsed);
    return parsed;
}

// A peer's address: 127.1.x.y for peer number n.
std::string peer_address(int n)
{
    return "127.1." + std::to_string(n / 250) + "." + std::to_string(n % 250 + 1);
}

int udp_socket(const std::string& address, std::uint16_t port)
{
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int size = 1 << 22;
    (void)::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
    sockaddr_storage storage{};
    const socklen_t length = endpoint(address, port).to_sockaddr(storage);
    if (::bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0) {
        std::perror("bind");
        std::exit(1);
    }
    return fd;
}

void send_to(int fd, const Endpoint& to, const Bytes& bytes)
{
    sockaddr_storage storage{};
    const socklen_t length = to.to_sockaddr(storage);
    (void)::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&storage), length);
}

Bytes sd_datagram(const std::vector<someip::Sd_entry>& entries, std::uint16_t session)
{
    someip::Sd_message message;
    message.reboot = true;
    message.entries = entries;
    someip::Message_header header;
    header.service_id = someip::kSdServiceId;
    header.method_id = someip::kSdMethodId;
    header.session_id = session;
    header.interface_version = 1;
    header.message_type = someip::Message_type::kNotification;
    return header.encode(message.encode());
}

someip::Sd_entry offer(std::uint16_t service, std::uint16_t instance, const Endpoint& at)
{
    someip::Sd_entry entry;
    entry.type = someip::Entry_type::kOfferService;
    entry.service_id = service;
    entry.instance_id = instance;
    entry.major = 1;
    entry.minor = 0;
    entry.ttl = 0xFFFF;
    entry.options.push_back(someip::Sd_option::udp_endpoint(at));
    return entry;
}

const Endpoint kRuntimeSd = endpoint("127.0.0.2", 30490);

// Sends each peer's own session counter, growing, so that no reboot is seen.
struct Peer {
    int fd = -1;
    std::uint16_t session = 1;
    Endpoint data;
};

std::vector<Peer> make_peers(int count, int first)
{
    std::vector<Peer> peers;
    for (int i = 0; i < count; ++i) {
        Peer peer;
        peer.fd = udp_socket(peer_address(first + i), 30490);
        peer.data = endpoint(peer_address(first + i), 40000);
        peers.push_back(peer);
    }
    return peers;
}

// Finds the monitor by unicast; returns when the runtime has handled everything sent
// to its discovery socket before. Fills the monitor's endpoint.
bool barrier(int fd, std::uint16_t& session, Endpoint* monitor = nullptr)
{
    someip::Sd_entry find;
    find.type = someip::Entry_type::kFindService;
    find.service_id = 0x2E10;
    find.ttl = 3;
    const auto deadline = Clock::now() + std::chrono::seconds(60);
    while (Clock::now() < deadline) {
        send_to(fd, kRuntimeSd, sd_datagram({find}, session++));
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, 200) != 1) {
            continue;
        }
        Bytes bytes(65536);
        while (true) {
            const ssize_t size = ::recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
            if (size < 16) {
                break;
            }
            someip::Sd_message message;
            std::string error;
            if (someip::Sd_message::decode(bytes.data() + 16, static_cast<std::size_t>(size) - 16, message, error)) {
                for (const auto& offered : message.entries) {
                    if (offered.type == someip::Entry_type::kOfferService && offered.service_id == 0x2E10) {
                        if (monitor != nullptr) {
                            (void)offered.udp_endpoint(*monitor);
                        }
                        return true;
                    }
                }
            }
        }
    }
    return false;
}

class Monitor : public vela::dm::dem::skeleton::DiagnosticMonitorSkeleton {
public:
    Monitor()
        : DiagnosticMonitorSkeleton(InstanceSpecifier("12452"), vela::com::runtime::MethodCallProcessingMode::kEvent)
    {
    }
    std::future<void> InitMonitor(vela::dm::dem::InitMonitorReasonType) override
    {
        std::promise<void> done;
        done.set_value();
        return done.get_future();
    }
};

// Offers from `peers` peers, `per_peer` each, one datagram of up to 800 per peer.
void offer_from(std::vector<Peer>& peers, int per_peer, std::uint16_t first_service)
{
    for (std::size_t p = 0; p < peers.size(); ++p) {
        std::vector<someip::Sd_entry> entries;
        for (int i = 0; i < per_peer; ++i) {
            entries.push_back(offer(static_cast<std::uint16_t>(first_service + p), static_cast<std::uint16_t>(i + 1),
                                    peers[p].data));
        }
        send_to(peers[p].fd, kRuntimeSd, sd_datagram(entries, peers[p].session++));
    }
}

void bench_batch(int barrier_fd, std::uint16_t& session)
{
    // Batches of 800 new offers from one peer each, before and after 20,000 offers seen.
    auto batch_peers = make_peers(40, 1000);
    auto seen_peers = make_peers(200, 0);
    const auto batches = [&](std::size_t from, std::size_t count, std::uint16_t service) {
        std::vector<double> costs;
        for (std::size_t b = from; b < from + count; ++b) {
            std::vector<Peer> one = {batch_peers[b]};
            const double start = cpu_seconds();
            offer_from(one, 800, static_cast<std::uint16_t>(service + b));
            (void)barrier(barrier_fd, session);
            costs.push_back((cpu_seconds() - start) * 1e3);
            batch_peers[b] = one[0];
        }
        std::sort(costs.begin(), costs.end());
        return costs[costs.size() / 2];
    };
    const double empty = batches(0, 10, 0x6000);
    offer_from(seen_peers, 100, 0x4000);  // 200 peers x 100 offers
    (void)barrier(barrier_fd, session);
    const double full = batches(10, 10, 0x6000);
    std::printf("%-34s %.2f ms CPU (median of 10) with 0 stored before, %.2f ms with 20,000 offers seen\n",
                "SD batch of 800 offers", empty, full);
}

void bench_flood(const Endpoint& monitor, int barrier_fd, std::uint16_t& session)
{
    std::atomic<bool> flooding{true};
    std::thread flood([&] {
        auto peers = make_peers(100, 2000);
        std::uint32_t key = 0;
        auto next = Clock::now();
        while (flooding) {
            // 100 datagrams of 100 offers per second: 10,000 entries per second.
            Peer& peer = peers[key / 100 % peers.size()];
            std::vector<someip::Sd_entry> entries;
            for (int i = 0; i < 100; ++i, ++key) {
                entries.push_back(offer(static_cast<std::uint16_t>(0x7000 + key / 60000),
                                        static_cast<std::uint16_t>(key % 60000 + 1), peer.data));
            }
            send_to(peer.fd, kRuntimeSd, sd_datagram(entries, peer.session++));
            next += std::chrono::milliseconds(10);
            std::this_thread::sleep_until(next);
        }
    });
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const int client = udp_socket("127.0.0.1", 0);
    std::vector<double> rtt;
    Bytes answer(1500);
    for (std::uint16_t i = 1; i <= 400; ++i) {
        someip::Message_header request;
        request.service_id = 0x2E10;
        request.method_id = 1;
        request.client_id = 0x0042;
        request.session_id = i;
        request.interface_version = 1;
        const auto start = Clock::now();
        send_to(client, monitor, request.encode({2}));
        pollfd entry{client, POLLIN, 0};
        if (::poll(&entry, 1, 5000) == 1 && ::recv(client, answer.data(), answer.size(), 0) > 0) {
            rtt.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    flooding = false;
    flood.join();
    ::close(client);
    (void)barrier(barrier_fd, session);
    std::sort(rtt.begin(), rtt.end());
    if (rtt.empty()) {
        std::printf("InitMonitor during SD flood: no answer\n");
        return;
    }
    std::printf("%-34s n=%zu median %.0f us  p99 %.0f us  max %.0f us (10,000 offer entries/s)\n",
                "InitMonitor during SD flood", rtt.size(), rtt[rtt.size() / 2], rtt[rtt.size() * 99 / 100],
                rtt.back());
}

void bench_forged_subscriptions(int barrier_fd, std::uint16_t& session)
{
    const long before = rss_kib();
    const int fd = udp_socket("127.0.0.1", 0);
    std::uint16_t sent_session = 1;
    for (int d = 0; d < 1000; ++d) {
        std::vector<someip::Sd_entry> entries;
        for (int i = 0; i < 100; ++i) {
            const int n = d * 100 + i;
            someip::Sd_entry entry;
            entry.type = someip::Entry_type::kSubscribeEventgroup;
            entry.service_id = 0x2E10;
            entry.instance_id = 0x30A4;
            entry.major = 1;
            entry.ttl = 0xFFFF;
            entry.eventgroup_id = 1;
            entry.options.push_back(someip::Sd_option::udp_endpoint(endpoint(
                "10." + std::to_string(n / 65536) + "." + std::to_string(n / 256 % 256) + "." + std::to_string(n % 256),
                40000)));
            entries.push_back(entry);
        }
        send_to(fd, kRuntimeSd, sd_datagram(entries, sent_session++));
        if (d % 50 == 49) {
            (void)barrier(barrier_fd, session);
        }
    }
    (void)barrier(barrier_fd, session);
    ::close(fd);
    std::printf("%-34s %ld KiB before, %ld KiB after 100,000 forged subscriptions\n", "RSS of the process", before,
                rss_kib());
}

}  // namespace

int main()
{
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    if (::unshare(CLONE_NEWNET) != 0) {
        std::printf("needs root: peers take addresses from 127.1.0.0/16 in a private network namespace\n");
        return 1;
    }
    bring_loopback_up();
    Component_singleton::startup(false, R"({"network": {"unicast": "127.0.0.2"},
        "service_discovery": {"initial_delay_min_ms": 0, "initial_delay_max_ms": 0}})");
    // As in the DLT launcher: a search for the consumed service and the monitor offered.
    auto search = ddd::proxy::DiagnosticDataDistributionProxy::StartFindService(
        [](std::vector<vela::com::runtime::HandleType>) {}, InstanceSpecifier("1"));
    Monitor monitor;
    monitor.OfferService();
    const int barrier_fd = udp_socket("127.0.0.1", 0);
    std::uint16_t session = 1;
    Endpoint monitor_at;
    if (!barrier(barrier_fd, session, &monitor_at)) {
        std::printf("monitor not found\n");
        return 1;
    }
    const std::string which = std::getenv("BENCH") != nullptr ? std::getenv("BENCH") : "all";
    if (which == "all" || which == "subscriptions") {
        bench_forged_subscriptions(barrier_fd, session);
    }
    if (which == "all" || which == "batch") {
        bench_batch(barrier_fd, session);
    }
    if (which == "all" || which == "flood") {
        bench_flood(monitor_at, barrier_fd, session);
    }
    ddd::proxy::DiagnosticDataDistributionProxy::StopFindService(search);
    monitor.StopOfferService();
    Component_singleton::shutdown();
    return 0;
}

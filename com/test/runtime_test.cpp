// SPDX-License-Identifier: Apache-2.0
// Consumer and provider in separate processes (the provider is strata-someip-offer),
// talking SOME/IP over loopback. As root each test runs in a private network namespace.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_skeleton.hpp"
#include "vela/com/runtime/component_singleton.hpp"
#include "vela/com/runtime/incident_log.hpp"
#include "vela/com/runtime/runtime.hpp"
#include "vela/com/someip/message_header.hpp"
#include "vela/com/someip/sd_message.hpp"
#include "vela/dm/dem/diagnosticmonitor_skeleton.hpp"

namespace {
namespace ddd = lumo::services::diagnosticdatadistribution;
namespace dem = vela::dm::dem;
using namespace std::chrono_literals;
using vela::com::runtime::Component_singleton;
using vela::com::runtime::HandleType;
using vela::com::runtime::InstanceSpecifier;
using vela::com::runtime::SubscriptionState;

constexpr auto kBound = 5s;

// Sets up the network once: a private namespace with loopback up when allowed,
// otherwise the host's loopback with a discovery port of this process's own. Services
// take ephemeral ports so that test processes running side by side do not collide.
class Network {
public:
    static Network& get()
    {
        static Network network;
        return network;
    }
    // The deployment as text: the same for this process and the peers it starts.
    const std::string& deployment() const { return text_; }
    std::uint16_t sd_port() const { return sd_port_; }
    bool is_private() const { return private_; }

private:
    Network()
    {
        private_ = ::unshare(CLONE_NEWNET) == 0;
        if (private_) {
            bring_loopback_up();
        } else {
            sd_port_ = static_cast<std::uint16_t>(31000 + ::getpid() % 2000);
        }
        text_ = R"({"network": {"unicast": "127.0.0.2"},
            "service_discovery": {"port": )" +
                std::to_string(sd_port_) + R"(, "multicast": "224.244.224.245",
            "initial_delay_min_ms": 0, "initial_delay_max_ms": 5, "repetitions_base_delay_ms": 20,
            "repetitions_max": 2, "cyclic_offer_delay_ms": 300, "ttl_s": 2},
            "request_timeout_ms": 2000,
            "services": [
              {"name": "lumo::services::diagnosticdatadistribution::DiagnosticDataDistribution",
               "service_id": "0x1A2B", "port": 0, "instances": {"1": 1},
               "methods": {"getDiagnosticData": 1, "getDiagnosticDataValues": 2, "dataValuesHash.Get": 3},
               "events": {"dataValuesHash": {"id": "0x8001", "eventgroup": 1, "field": true}}},
              {"name": "vela::dm::dem::DiagnosticMonitor", "service_id": "0x2E10", "port": 0,
               "instances": {"12452": "0x30A4"}, "methods": {"InitMonitor": 1},
               "events": {"MonitorAction": {"id": "0x8001", "eventgroup": 1}}}]})";
    }

    static void bring_loopback_up()
    {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq request{};
        std::strncpy(request.ifr_name, "lo", IFNAMSIZ - 1);
        (void)::ioctl(fd, SIOCGIFFLAGS, &request);
        request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP);
        (void)::ioctl(fd, SIOCSIFFLAGS, &request);
        (void)::close(fd);
    }

    bool private_ = false;
    std::uint16_t sd_port_ = 30490;
    std::string text_;
};

// strata-someip-offer as a child: commands on its stdin, lines from its stdout.
class Peer {
public:
    explicit Peer(const std::vector<std::string>& args)
    {
        int in[2];
        int out[2];
        EXPECT_EQ(::pipe2(in, O_CLOEXEC), 0);
        EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
        std::vector<std::string> argv_text = {STRATA_SOMEIP_OFFER};
        argv_text.insert(argv_text.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (auto& arg : argv_text) {
            argv.push_back(&arg[0]);
        }
        argv.push_back(nullptr);
        const std::string deployment = "STRATA_COM_DEPLOYMENT=" + Network::get().deployment();
        std::vector<char*> envp = {const_cast<char*>(deployment.c_str()),
                                   const_cast<char*>("STRATA_COM_UNICAST=127.0.0.1"), nullptr};
        pid_ = ::fork();
        if (pid_ == 0) {
            ::dup2(in[0], 0);
            ::dup2(out[1], 1);
            ::execve(argv[0], argv.data(), envp.data());
            ::_exit(127);
        }
        ::close(in[0]);
        ::close(out[1]);
        in_ = in[1];
        out_ = out[0];
    }
    ~Peer()
    {
        if (pid_ > 0) {
            (void)::kill(pid_, SIGKILL);
            reap();
        }
        ::close(in_);
        ::close(out_);
    }

    void send(const std::string& command) { ASSERT_GT(::write(in_, (command + "\n").data(), command.size() + 1), 0); }

    // Reads lines until one contains `text`, within the bound.
    bool wait_line(const std::string& text, std::chrono::milliseconds bound = kBound)
    {
        const auto deadline = std::chrono::steady_clock::now() + bound;
        while (buffer_.find(text) == std::string::npos) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
            pollfd entry{out_, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&entry, 1, static_cast<int>(left.count())) <= 0) {
                return false;
            }
            char chunk[512];
            const ssize_t got = ::read(out_, chunk, sizeof chunk);
            if (got <= 0) {
                return false;
            }
            buffer_.append(chunk, static_cast<std::size_t>(got));
        }
        buffer_.erase(0, buffer_.find(text) + text.size());
        return true;
    }

    void kill_hard()
    {
        (void)::kill(pid_, SIGKILL);
        reap();
    }

private:
    void reap()
    {
        int status = 0;
        (void)::waitpid(pid_, &status, 0);
        pid_ = -1;
    }

    pid_t pid_ = -1;
    int in_ = -1;
    int out_ = -1;
    std::string buffer_;
};

// What the consumer's handlers saw, in order.
class Journal {
public:
    void add(const std::string& line)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        changed_.notify_all();
    }
    bool wait_for(const std::string& line, std::size_t from = 0, std::chrono::milliseconds bound = kBound)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, bound, [&] { return index_of(line, from) != std::string::npos; });
    }
    std::size_t index_of(const std::string& line, std::size_t from = 0) const
    {
        for (std::size_t i = from; i < lines_.size(); ++i) {
            if (lines_[i] == line) {
                return i;
            }
        }
        return std::string::npos;
    }
    std::size_t size()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_.size();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

// The launcher's way of using the service: a proxy per find result (or only the first),
// and a method call from inside the receive handler.
class Consumer {
public:
    explicit Consumer(bool keep_first_proxy) : keep_first_(keep_first_proxy)
    {
        search_ = ddd::proxy::DiagnosticDataDistributionProxy::StartFindService(
            [this](std::vector<HandleType> handles) { found(handles); }, InstanceSpecifier("1"));
    }
    ~Consumer()
    {
        ddd::proxy::DiagnosticDataDistributionProxy::StopFindService(search_);
        std::lock_guard<std::mutex> lock(mutex_);
        if (proxy_) {
            proxy_->dataValuesHash.UnsetReceiveHandler();
        }
        proxy_.reset();
    }

    std::shared_ptr<ddd::proxy::DiagnosticDataDistributionProxy> proxy()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return proxy_;
    }
    Journal journal;

private:
    void found(const std::vector<HandleType>& handles)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        journal.add(handles.empty() ? "stopped" : "offered");
        if (handles.empty() || (keep_first_ && proxy_)) {
            return;
        }
        proxy_ = std::make_shared<ddd::proxy::DiagnosticDataDistributionProxy>(handles.front());
        std::weak_ptr<ddd::proxy::DiagnosticDataDistributionProxy> weak = proxy_;
        proxy_->dataValuesHash.SetReceiveHandler([this, weak] {
            auto current = weak.lock();
            if (!current) {
                return;
            }
            current->dataValuesHash.GetNewSamples([](auto) {}, 1);
            try {
                const auto output = current->getDiagnosticDataValues(0, {1293}).get();
                journal.add("value " + std::to_string(output.dataValues.at(0)));
            } catch (const std::exception& e) {
                journal.add(std::string("error ") + e.what());
            }
        });
        proxy_->dataValuesHash.Subscribe(1);
        journal.add("proxy");
    }

    bool keep_first_;
    std::mutex mutex_;
    std::shared_ptr<ddd::proxy::DiagnosticDataDistributionProxy> proxy_;
    vela::com::runtime::FindServiceHandle search_;
};

class RuntimeAcrossProcesses : public ::testing::Test {
protected:
    void SetUp() override { Component_singleton::startup(false, Network::get().deployment()); }
    void TearDown() override { Component_singleton::shutdown(); }
};

TEST_F(RuntimeAcrossProcesses, FindSubscribeNotifyCallAndStopOffer)
{
    Peer provider({"--value", "1"});
    Consumer consumer(false);
    ASSERT_TRUE(consumer.journal.wait_for("offered"));
    ASSERT_TRUE(consumer.journal.wait_for("value 1")) << "the current field value reaches a new subscriber";
    provider.send("0");
    ASSERT_TRUE(consumer.journal.wait_for("value 0"));
    EXPECT_EQ(consumer.proxy()->dataValuesHash.GetSubscriptionState(), SubscriptionState::kSubscribed);

    provider.send("stop");
    ASSERT_TRUE(consumer.journal.wait_for("stopped"));
    try {
        (void)consumer.proxy()->getDiagnosticDataValues(0, {1293});
        FAIL() << "a call without offer must throw";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Service not available exception");
    }
    EXPECT_EQ(consumer.proxy()->dataValuesHash.GetSubscriptionState(), SubscriptionState::kSubscriptionPending);
    provider.send("offer");
    ASSERT_TRUE(consumer.journal.wait_for("offered", consumer.journal.index_of("stopped")));
}

TEST_F(RuntimeAcrossProcesses, ProviderRestart_IsDetectedAsRebootAndSubscriptionRenews)
{
    auto provider = std::make_unique<Peer>(std::vector<std::string>{"--value", "1"});
    Consumer consumer(true);
    ASSERT_TRUE(consumer.journal.wait_for("value 1"));
    provider->kill_hard();  // no StopOffer on the wire: only the reboot flag tells
    provider = std::make_unique<Peer>(std::vector<std::string>{"--value", "5"});
    ASSERT_TRUE(consumer.journal.wait_for("value 5")) << "the first proxy's subscription was renewed";
    const std::size_t stopped = consumer.journal.index_of("stopped");
    ASSERT_NE(stopped, std::string::npos) << "the old offer expired on reboot";
    EXPECT_NE(consumer.journal.index_of("offered", stopped), std::string::npos);
    EXPECT_EQ(consumer.proxy()->dataValuesHash.GetSubscriptionState(), SubscriptionState::kSubscribed);
}

TEST_F(RuntimeAcrossProcesses, SilentlyVanishedProvider_OfferExpiresAfterItsTtl)
{
    auto provider = std::make_unique<Peer>(std::vector<std::string>{"--value", "1"});
    Consumer consumer(true);
    ASSERT_TRUE(consumer.journal.wait_for("value 1"));
    const auto killed = std::chrono::steady_clock::now();
    provider.reset();  // SIGKILL: neither StopOffer nor further offers
    ASSERT_TRUE(consumer.journal.wait_for("stopped"));
    EXPECT_GE(std::chrono::steady_clock::now() - killed, 1500ms) << "expired before the TTL of 2 s";
    EXPECT_THROW((void)consumer.proxy()->getDiagnosticDataValues(0, {1293}), std::runtime_error);
}

class Monitor : public dem::skeleton::DiagnosticMonitorSkeleton {
public:
    Monitor()
        : DiagnosticMonitorSkeleton(InstanceSpecifier("12452"), vela::com::runtime::MethodCallProcessingMode::kEvent)
    {
    }
    std::future<void> InitMonitor(dem::InitMonitorReasonType reason) override
    {
        journal.add("InitMonitor " + std::to_string(static_cast<int>(reason)));
        std::promise<void> done;
        done.set_value();
        return done.get_future();
    }
    Journal journal;
};

// Listens on the discovery group like any other node and notes when offers arrive.
TEST_F(RuntimeAcrossProcesses, OfferPhases_FollowTheConfiguredTiming)
{
    const int listener = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int one = 1;
    (void)::setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    (void)::setsockopt(listener, SOL_SOCKET, SO_REUSEPORT, &one, sizeof one);
    sockaddr_in group{};
    group.sin_family = AF_INET;
    group.sin_port = htons(Network::get().sd_port());
    ::inet_pton(AF_INET, "224.244.224.245", &group.sin_addr);
    ASSERT_EQ(::bind(listener, reinterpret_cast<sockaddr*>(&group), sizeof group), 0);
    ip_mreq membership{};
    membership.imr_multiaddr = group.sin_addr;
    ::inet_pton(AF_INET, "127.0.0.2", &membership.imr_interface);
    ASSERT_EQ(::setsockopt(listener, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership), 0);

    Monitor monitor;
    const auto offered = std::chrono::steady_clock::now();
    monitor.OfferService();
    std::vector<double> arrivals_ms;
    const auto deadline = offered + kBound;
    while (arrivals_ms.size() < 5 && std::chrono::steady_clock::now() < deadline) {
        pollfd entry{listener, POLLIN, 0};
        if (::poll(&entry, 1, 100) != 1) {
            continue;
        }
        std::uint8_t buffer[1500];
        const ssize_t size = ::recv(listener, buffer, sizeof buffer, 0);
        vela::com::someip::Sd_message message;
        std::string error;
        if (size <= 16 ||
            !vela::com::someip::Sd_message::decode(buffer + 16, static_cast<std::size_t>(size) - 16, message, error)) {
            continue;
        }
        for (const auto& entry_seen : message.entries) {
            if (entry_seen.type == vela::com::someip::Entry_type::kOfferService && entry_seen.service_id == 0x2E10 &&
                entry_seen.ttl == 2) {
                arrivals_ms.push_back(
                    std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - offered).count());
            }
        }
    }
    ::close(listener);
    ASSERT_EQ(arrivals_ms.size(), 5u);
    // Initial wait 0..5 ms; repetitions after 20 and 40 ms; then every 300 ms.
    EXPECT_LT(arrivals_ms[0], 100.0);
    EXPECT_NEAR(arrivals_ms[1] - arrivals_ms[0], 20.0, 15.0);
    EXPECT_NEAR(arrivals_ms[2] - arrivals_ms[1], 40.0, 15.0);
    EXPECT_NEAR(arrivals_ms[3] - arrivals_ms[2], 300.0, 40.0);
    EXPECT_NEAR(arrivals_ms[4] - arrivals_ms[3], 300.0, 40.0);
}

TEST_F(RuntimeAcrossProcesses, DiagnosticManagerReceivesMonitorActionAndCallsInitMonitor)
{
    Monitor monitor;
    monitor.OfferService();
    Peer manager({"--no-offer", "--monitor"});
    ASSERT_TRUE(manager.wait_line("monitor offered"));
    // The subscription is acknowledged asynchronously: repeat until the manager prints the event.
    bool received = false;
    for (int i = 0; i < 50 && !received; ++i) {
        monitor.MonitorAction.Send(dem::MonitorActionType::kFailed);
        received = manager.wait_line("MonitorAction 1", 100ms);
    }
    ASSERT_TRUE(received);
    manager.send("init 1");
    ASSERT_TRUE(manager.wait_line("InitMonitor 1 done"));
    EXPECT_TRUE(monitor.journal.wait_for("InitMonitor 1"));
    monitor.StopOfferService();
    ASSERT_TRUE(manager.wait_line("monitor stopped"));
}

class Blocking_provider : public ddd::skeleton::DiagnosticDataDistributionSkeleton {
public:
    Blocking_provider() : DiagnosticDataDistributionSkeleton(InstanceSpecifier("1")) {}
    std::future<getDiagnosticDataValuesOutput> getDiagnosticDataValues(std::uint32_t,
                                                                       const ddd::datatypes::DT_ListOfIds&) override
    {
        journal.add("called");
        std::unique_lock<std::mutex> lock(mutex);
        (void)released_cv.wait_for(lock, kBound, [this] { return released; });
        std::promise<getDiagnosticDataValuesOutput> answer;
        answer.set_value({});
        return answer.get_future();
    }
    std::future<getDiagnosticDataOutput> getDiagnosticData(std::uint32_t, std::uint32_t) override
    {
        std::promise<getDiagnosticDataOutput> answer;
        answer.set_value({});
        return answer.get_future();
    }
    void release()
    {
        std::lock_guard<std::mutex> lock(mutex);
        released = true;
        released_cv.notify_all();
    }
    Journal journal;
    std::mutex mutex;
    std::condition_variable released_cv;
    bool released = false;
};

TEST_F(RuntimeAcrossProcesses, PendingCallFailsWhenTheOfferEndsAndUnknownMethodIsAnswered)
{
    Blocking_provider provider;
    provider.OfferService();
    Consumer consumer(true);
    ASSERT_TRUE(consumer.journal.wait_for("proxy"));
    auto proxy = consumer.proxy();
    ASSERT_TRUE(proxy);

    std::promise<vela::com::runtime::Runtime::Response> unknown;
    const HandleType handle = proxy->GetHandle();
    ASSERT_TRUE(Component_singleton::current()->send_request(
        handle.service_id(), handle.instance_id(), 0x0077, {},
        [&unknown](vela::com::runtime::Runtime::Response response) { unknown.set_value(response); }));
    auto answer = unknown.get_future();
    ASSERT_EQ(answer.wait_for(kBound), std::future_status::ready);
    const auto response = answer.get();
    EXPECT_EQ(response.header.message_type, vela::com::someip::Message_type::kError);
    EXPECT_EQ(response.header.return_code, vela::com::someip::Return_code::kUnknownMethod);

    auto pending = proxy->getDiagnosticDataValues(0, {1293});
    ASSERT_TRUE(provider.journal.wait_for("called"));
    provider.StopOfferService();
    ASSERT_EQ(pending.wait_for(kBound), std::future_status::ready);
    try {
        (void)pending.get();
        FAIL() << "the call must fail once the offer ended";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Service not available exception");
    }
    provider.release();
}

// A peer written against the wire format only: a discovery socket at the deployment's
// discovery port and a data socket on an ephemeral port, both on 127.0.0.1, sending
// bytes chosen by the test.
namespace someip = vela::com::someip;
using Bytes = std::vector<std::uint8_t>;

class Wire_peer {
public:
    Wire_peer() : sd_(bind_udp(Network::get().sd_port())), data_(bind_udp(0)) {}
    ~Wire_peer()
    {
        ::close(sd_);
        ::close(data_);
    }

    static Bytes sd_datagram(const std::vector<someip::Sd_entry>& entries, std::uint16_t session)
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
    static someip::Sd_entry entry(someip::Entry_type type, std::uint16_t service, std::uint16_t instance,
                                  std::uint32_t ttl, std::uint16_t port = 0)
    {
        someip::Sd_entry made;
        made.type = type;
        made.service_id = service;
        made.instance_id = instance;
        made.major = 1;
        made.minor = type == someip::Entry_type::kFindService ? someip::kAnyMinor : 0;
        made.ttl = ttl;
        made.eventgroup_id = 1;
        if (port != 0) {
            made.options.push_back(someip::Sd_option::udp_endpoint(endpoint("127.0.0.1", port)));
        }
        return made;
    }
    static vela::com::runtime::Endpoint endpoint(const std::string& address, std::uint16_t port)
    {
        vela::com::runtime::Endpoint parsed;
        (void)vela::com::runtime::Endpoint::parse(address, port, parsed);
        return parsed;
    }
    std::uint16_t data_port() const { return port_of(data_); }
    int sd() const { return sd_; }
    int data() const { return data_; }

    void send_sd(const Bytes& bytes) { send(sd_, runtime_sd(), bytes); }
    static vela::com::runtime::Endpoint runtime_sd() { return endpoint("127.0.0.2", Network::get().sd_port()); }

    static void send(int fd, const vela::com::runtime::Endpoint& to, const Bytes& bytes)
    {
        sockaddr_storage address{};
        const socklen_t length = to.to_sockaddr(address);
        EXPECT_GT(::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&address), length), 0);
    }
    // One datagram within `bound`; false if none came.
    static bool receive(int fd, Bytes& bytes, vela::com::runtime::Endpoint& from,
                        std::chrono::milliseconds bound = kBound)
    {
        pollfd entry{fd, POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(bound.count())) != 1) {
            return false;
        }
        bytes.assign(65536, 0);
        sockaddr_storage source{};
        socklen_t length = sizeof source;
        const ssize_t size =
            ::recvfrom(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&source), &length);
        bytes.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        from = vela::com::runtime::Endpoint::from_sockaddr(source);
        return size > 0;
    }
    // The discovery entries of the next discovery datagram.
    bool receive_sd(std::vector<someip::Sd_entry>& entries, std::chrono::milliseconds bound = kBound)
    {
        Bytes bytes;
        vela::com::runtime::Endpoint from;
        someip::Sd_message message;
        std::string error;
        if (!receive(sd_, bytes, from, bound) || bytes.size() < someip::kHeaderSize ||
            !someip::Sd_message::decode(bytes.data() + someip::kHeaderSize, bytes.size() - someip::kHeaderSize,
                                        message, error)) {
            return false;
        }
        entries = message.entries;
        return true;
    }

    static int bind_udp(std::uint16_t port, const char* address = "127.0.0.1")
    {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_storage storage{};
        const socklen_t length = endpoint(address, port).to_sockaddr(storage);
        EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&storage), length), 0);
        return fd;
    }
    static std::uint16_t port_of(int fd)
    {
        sockaddr_storage storage{};
        socklen_t length = sizeof storage;
        (void)::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length);
        return vela::com::runtime::Endpoint::from_sockaddr(storage).port;
    }

private:
    int sd_ = -1;
    int data_ = -1;
};

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const auto& part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

TEST_F(RuntimeAcrossProcesses, UndecodableAnswerAndErrorAnswerReachTheCallerAsExceptions)
{
    Wire_peer provider;
    Consumer consumer(true);
    // The consumer's sockets open asynchronously: offer like a provider's repetition phase.
    bool found = false;
    for (int i = 0; i < 50 && !found; ++i) {
        provider.send_sd(Wire_peer::sd_datagram(
            {Wire_peer::entry(someip::Entry_type::kOfferService, 0x1A2B, 1, 3, provider.data_port())}, 1));
        found = consumer.journal.wait_for("proxy", 0, 100ms);
    }
    ASSERT_TRUE(found);
    auto proxy = consumer.proxy();
    proxy->dataValuesHash.UnsetReceiveHandler();

    // Waits for one request and answers it with `type`, `code` and `payload`.
    const auto answer = [&provider](someip::Message_type type, someip::Return_code code, const Bytes& payload) {
        Bytes bytes;
        vela::com::runtime::Endpoint from;
        someip::Message_header request;
        if (!Wire_peer::receive(provider.data(), bytes, from) ||
            !someip::Message_header::decode(bytes.data(), bytes.size(), request)) {
            return false;
        }
        request.message_type = type;
        request.return_code = code;
        Wire_peer::send(provider.data(), from, request.encode(payload));
        return true;
    };
    auto undecodable = proxy->getDiagnosticDataValues(0, {1293});
    ASSERT_TRUE(answer(someip::Message_type::kResponse, someip::Return_code::kOk, {0, 0, 0, 40, 1, 2}));
    ASSERT_EQ(undecodable.wait_for(kBound), std::future_status::ready);
    try {
        (void)undecodable.get();
        FAIL() << "an undecodable answer must fail the call";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Transport exception");
    }

    auto refused = proxy->getDiagnosticDataValues(0, {1293});
    ASSERT_TRUE(answer(someip::Message_type::kError, someip::Return_code::kNotReady, {}));
    ASSERT_EQ(refused.wait_for(kBound), std::future_status::ready);
    EXPECT_THROW((void)refused.get(), std::runtime_error);
}

class Recording_listener : public vela::com::runtime::Runtime::Event_listener {
public:
    void on_notification(std::vector<std::uint8_t> payload) override { journal.add(std::to_string(payload.at(0))); }
    void on_state(SubscriptionState) override {}
    Journal journal;
};

// Packed messages are each processed; a malformed tail costs only itself; only the
// offering endpoint may notify.
TEST_F(RuntimeAcrossProcesses, ConsumerTakesPackedMessagesAndOnlyTheProvidersNotifications)
{
    Wire_peer provider;
    const auto runtime = Component_singleton::acquire();
    Journal found;
    const std::uint64_t search = runtime->start_find(0x1A2B, someip::kAnyInstance, 1, [&](std::vector<HandleType> h) {
        found.add(std::to_string(h.size()) + " found");
    });
    // Offers in one discovery message (another service's first: no reason to call the
    // handler), then a second message cut short.
    const Bytes offers = Wire_peer::sd_datagram(
        {Wire_peer::entry(someip::Entry_type::kOfferService, 0x3333, 1, 3, provider.data_port()),
         Wire_peer::entry(someip::Entry_type::kOfferService, 0x1A2B, 1, 3, provider.data_port()),
         Wire_peer::entry(someip::Entry_type::kOfferService, 0x1A2B, 2, 3, provider.data_port())},
        1);
    const Bytes cut = Bytes(offers.begin(), offers.begin() + 20);
    bool seen = false;
    for (std::uint16_t session = 1; session < 50 && !seen; ++session) {
        Bytes datagram = join({offers, cut});
        datagram[11] = static_cast<std::uint8_t>(session);
        provider.send_sd(datagram);
        seen = found.wait_for("2 found", 0, 100ms);
    }
    ASSERT_TRUE(seen);
    EXPECT_EQ(found.index_of("0 found"), std::string::npos) << "no empty list before the first offer";
    runtime->stop_find(search);

    auto listener = std::make_shared<Recording_listener>();
    const std::uint64_t id = runtime->subscribe(0x1A2B, 1, 1, 1, 0x8001, listener);
    std::vector<someip::Sd_entry> entries;
    ASSERT_TRUE(provider.receive_sd(entries));
    ASSERT_EQ(entries.size(), 1u);
    vela::com::runtime::Endpoint subscriber;
    ASSERT_TRUE(entries[0].udp_endpoint(subscriber));

    const auto notification = [](std::uint8_t value) {
        someip::Message_header header;
        header.service_id = 0x1A2B;
        header.method_id = 0x8001;
        header.interface_version = 1;
        header.message_type = someip::Message_type::kNotification;
        return header.encode({value});
    };
    const int stranger = Wire_peer::bind_udp(0, "127.0.0.3");
    Wire_peer::send(stranger, subscriber, notification(9));
    ::close(stranger);
    Wire_peer::send(provider.data(), subscriber, join({notification(1), notification(2)}));
    ASSERT_TRUE(listener->journal.wait_for("2"));
    EXPECT_EQ(listener->journal.index_of("1"), 0u);
    EXPECT_EQ(listener->journal.index_of("9"), std::string::npos) << "a non-provider's notification was delivered";
    runtime->unsubscribe(id);
}

// A provider answers every request of a packed datagram, answers a datagram of finds
// with one offer per service, and refuses subscriptions that point at another host.
TEST_F(RuntimeAcrossProcesses, ProviderAnswersPackedRequestsOnceEachAndRefusesForgedSubscribers)
{
    Monitor monitor;
    monitor.OfferService();
    Wire_peer manager;
    std::vector<someip::Sd_entry> finds(40, Wire_peer::entry(someip::Entry_type::kFindService, 0x2E10, 0xFFFF, 3));
    std::vector<someip::Sd_entry> answer;
    std::uint16_t session = 1;
    for (; session < 50 && answer.empty(); ++session) {
        manager.send_sd(Wire_peer::sd_datagram(finds, session));
        (void)manager.receive_sd(answer, 100ms);
    }
    ASSERT_EQ(answer.size(), 1u) << "one offer for forty finds";
    std::size_t offers = 1;
    vela::com::runtime::Endpoint provider;
    ASSERT_TRUE(answer[0].udp_endpoint(provider));

    someip::Message_header request;
    request.service_id = 0x2E10;
    request.method_id = 1;
    request.client_id = 0x0042;
    request.interface_version = 1;
    request.session_id = 1;
    const Bytes first = request.encode({0});
    request.session_id = 2;
    Wire_peer::send(manager.data(), provider, join({first, request.encode({1})}));
    std::set<std::uint16_t> answered;
    Bytes bytes;
    vela::com::runtime::Endpoint from;
    while (answered.size() < 2 && Wire_peer::receive(manager.data(), bytes, from)) {
        someip::Message_header response;
        ASSERT_TRUE(someip::Message_header::decode(bytes.data(), bytes.size(), response));
        EXPECT_EQ(response.return_code, someip::Return_code::kOk);
        answered.insert(response.session_id);
    }
    EXPECT_EQ(answered, (std::set<std::uint16_t>{1, 2}));
    // Each packed request reached the handler; waiting on the journal also orders the
    // handler threads' writes before the monitor and its journal go away.
    EXPECT_TRUE(monitor.journal.wait_for("InitMonitor 0"));
    EXPECT_TRUE(monitor.journal.wait_for("InitMonitor 1"));

    const struct {
        const char* host;
        std::uint32_t ttl_answered;
    } subscribers[] = {{"127.0.0.9", 0}, {"127.0.0.1", 2}};
    for (const auto& subscriber : subscribers) {
        auto subscribe = Wire_peer::entry(someip::Entry_type::kSubscribeEventgroup, 0x2E10, 0x30A4, 2);
        subscribe.options.push_back(someip::Sd_option::udp_endpoint(Wire_peer::endpoint(subscriber.host, 40000)));
        manager.send_sd(Wire_peer::sd_datagram({subscribe}, session++));
        std::vector<someip::Sd_entry> acks;
        // Answers to finds sent while the offer was still starting may come first.
        while (manager.receive_sd(acks) && acks.size() == 1 && acks[0].type == someip::Entry_type::kOfferService) {
            ++offers;
        }
        ASSERT_EQ(acks.size(), 1u);
        EXPECT_EQ(acks[0].type, someip::Entry_type::kSubscribeEventgroupAck);
        EXPECT_EQ(acks[0].ttl, subscriber.ttl_answered) << subscriber.host;
    }
    EXPECT_LT(offers, session) << "at most one offer per datagram of finds";
}

// The state a new subscriber is told first must not overtake the acknowledgement: the
// first listener call holds on until the acknowledgement could have been handled.
class Slow_first_listener : public vela::com::runtime::Runtime::Event_listener {
public:
    void on_notification(std::vector<std::uint8_t>) override {}
    void on_state(SubscriptionState state) override
    {
        std::unique_lock<std::mutex> lock(mutex_);
        const bool first = calls_++ == 0;
        if (first) {
            (void)changed_.wait_for(lock, 500ms, [this] { return calls_ > 1; });
        }
        last_ = state;
        changed_.notify_all();
    }
    bool wait_for(SubscriptionState state)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, kBound, [&] { return last_ == state; });
    }
    SubscriptionState last()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return last_;
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    int calls_ = 0;
    SubscriptionState last_ = SubscriptionState::kNotSubscribed;
};

TEST_F(RuntimeAcrossProcesses, SubscriptionState_InitialStateNeverOvertakesTheAcknowledgement)
{
    Peer provider({"--value", "1"});
    const auto runtime = Component_singleton::acquire();
    const auto* service =
        runtime->service("lumo::services::diagnosticdatadistribution::DiagnosticDataDistribution");
    ASSERT_NE(service, nullptr);
    Journal journal;
    const std::uint64_t search =
        runtime->start_find(service->service_id, 1, service->major, [&journal](std::vector<HandleType> handles) {
            journal.add(handles.empty() ? "stopped" : "offered");
        });
    ASSERT_TRUE(journal.wait_for("offered"));
    runtime->stop_find(search);

    // The group is new, so its state is pending until the provider acknowledges.
    const auto& event = service->event("dataValuesHash");
    auto listener = std::make_shared<Slow_first_listener>();
    const std::uint64_t id =
        runtime->subscribe(service->service_id, 1, service->major, event.eventgroup, event.id, listener);
    ASSERT_TRUE(listener->wait_for(SubscriptionState::kSubscribed));
    std::this_thread::sleep_for(100ms);  // a stale state told late would land now
    EXPECT_EQ(listener->last(), SubscriptionState::kSubscribed);
    runtime->unsubscribe(id);
}

// In a namespace whose loopback is down nothing can be bound: the runtime must still
// start, answer the application without hanging and stop promptly.
TEST(RuntimeWithoutNetwork, CallsFailCleanlyAndShutdownIsPrompt)
{
    ASSERT_EQ(Component_singleton::current(), nullptr);
    const pid_t child = ::fork();
    if (child == 0) {
        if (::unshare(CLONE_NEWNET) != 0) {
            ::_exit(77);
        }
        Component_singleton::startup(false, "{\"network\": {\"unicast\": \"127.0.0.2\"}}");
        int result = 0;
        try {
            auto search = ddd::proxy::DiagnosticDataDistributionProxy::StartFindService(
                [](std::vector<HandleType> handles) {
                    if (!handles.empty()) {
                        ::_exit(3);
                    }
                },
                InstanceSpecifier("1"));
            Blocking_provider provider;
            provider.OfferService();
            ddd::proxy::DiagnosticDataDistributionProxy proxy(
                HandleType(0x1A2B, 1, 1, 0, vela::com::runtime::Endpoint{}));
            try {
                (void)proxy.getDiagnosticDataValues(0, {1293});
                result = 4;
            } catch (const std::runtime_error& e) {
                result = std::string(e.what()) == "Service not available exception" ? 0 : 5;
            }
            proxy.dataValuesHash.Subscribe(1);
            ddd::proxy::DiagnosticDataDistributionProxy::StopFindService(search);
        } catch (...) {
            result = 6;
        }
        Component_singleton::shutdown();
        // exit, not _exit: the leak check of a sanitizer build runs at exit and must see
        // what the runtime left behind in this process.
        std::exit(result);
    }
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + kBound;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            (void)::kill(child, SIGKILL);
            (void)::waitpid(child, &status, 0);
            FAIL() << "runtime hung without network";
        }
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "no private network namespace (needs root)";
    }
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
}  // namespace

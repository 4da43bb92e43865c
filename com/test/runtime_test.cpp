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
#include <memory>
#include <mutex>
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

// A provider written against the wire format only: it offers by unicast and answers
// with bytes chosen by the test.
class Raw_provider {
public:
    Raw_provider()
    {
        sd_ = bind_udp(30490);
        data_ = bind_udp(40000);
    }
    ~Raw_provider()
    {
        ::close(sd_);
        ::close(data_);
    }

    void offer_to(const std::string& consumer)
    {
        vela::com::someip::Sd_message message;
        message.reboot = true;
        vela::com::someip::Sd_entry offer;
        offer.type = vela::com::someip::Entry_type::kOfferService;
        offer.service_id = 0x1A2B;
        offer.instance_id = 1;
        offer.major = 1;
        offer.minor = 0;
        offer.ttl = 3;
        vela::com::runtime::Endpoint endpoint;
        (void)vela::com::runtime::Endpoint::parse("127.0.0.1", 40000, endpoint);
        offer.options.push_back(vela::com::someip::Sd_option::udp_endpoint(endpoint));
        message.entries.push_back(offer);
        vela::com::someip::Message_header header;
        header.service_id = 0xFFFF;
        header.method_id = 0x8100;
        header.session_id = 1;
        header.interface_version = 1;
        header.message_type = vela::com::someip::Message_type::kNotification;
        send(sd_, consumer, 30490, header.encode(message.encode()));
    }

    // Waits for one request and answers it with `type`, `code` and `payload`.
    bool answer(vela::com::someip::Message_type type, vela::com::someip::Return_code code,
                const std::vector<std::uint8_t>& payload)
    {
        pollfd entry{data_, POLLIN, 0};
        if (::poll(&entry, 1, 5000) != 1) {
            return false;
        }
        std::uint8_t buffer[1500];
        sockaddr_storage from{};
        socklen_t length = sizeof from;
        const ssize_t size = ::recvfrom(data_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr*>(&from), &length);
        vela::com::someip::Message_header request;
        if (size <= 0 || !vela::com::someip::Message_header::decode(buffer, static_cast<std::size_t>(size), request)) {
            return false;
        }
        request.message_type = type;
        request.return_code = code;
        const auto bytes = request.encode(payload);
        return ::sendto(data_, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), length) > 0;
    }

private:
    static int bind_udp(std::uint16_t port)
    {
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(0x7F000001);
        EXPECT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        return fd;
    }
    static void send(int fd, const std::string& to, std::uint16_t port, const std::vector<std::uint8_t>& bytes)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        ::inet_pton(AF_INET, to.c_str(), &address.sin_addr);
        EXPECT_GT(::sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&address), sizeof address),
                  0);
    }

    int sd_ = -1;
    int data_ = -1;
};

TEST_F(RuntimeAcrossProcesses, UndecodableAnswerAndErrorAnswerReachTheCallerAsExceptions)
{
    if (!Network::get().is_private()) {
        GTEST_SKIP() << "needs the private network namespace (root) for the fixed discovery port";
    }
    Raw_provider provider;
    Consumer consumer(true);
    // The consumer's sockets open asynchronously: offer like a provider's repetition phase.
    bool found = false;
    for (int i = 0; i < 50 && !found; ++i) {
        provider.offer_to("127.0.0.2");
        found = consumer.journal.wait_for("proxy", 0, 100ms);
    }
    ASSERT_TRUE(found);
    auto proxy = consumer.proxy();
    proxy->dataValuesHash.UnsetReceiveHandler();

    auto undecodable = proxy->getDiagnosticDataValues(0, {1293});
    ASSERT_TRUE(provider.answer(vela::com::someip::Message_type::kResponse, vela::com::someip::Return_code::kOk,
                                {0, 0, 0, 40, 1, 2}));
    ASSERT_EQ(undecodable.wait_for(kBound), std::future_status::ready);
    try {
        (void)undecodable.get();
        FAIL() << "an undecodable answer must fail the call";
    } catch (const std::runtime_error& e) {
        EXPECT_STREQ(e.what(), "Transport exception");
    }

    auto refused = proxy->getDiagnosticDataValues(0, {1293});
    ASSERT_TRUE(
        provider.answer(vela::com::someip::Message_type::kError, vela::com::someip::Return_code::kNotReady, {}));
    ASSERT_EQ(refused.wait_for(kBound), std::future_status::ready);
    EXPECT_THROW((void)refused.get(), std::runtime_error);
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
        ::_exit(result);
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

// SPDX-License-Identifier: Apache-2.0
// The runtime's life: start, stop, and the I/O thread that waits for datagrams and
// the next deadline. The parts it drives live in the files named for them.
#include "vela/com/runtime/runtime.hpp"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include "vela/com/runtime/runtime_state.hpp"

namespace vela {
namespace com {
namespace runtime {

namespace {
constexpr std::size_t kWorkerThreads = 3;
// The longest the I/O thread sleeps without looking whether it must stop: a wake-up whose
// write failed must not leave stop() joining it for ever.
constexpr int kStopCheckMs = 250;
}  // namespace

Runtime::Runtime(Deployment deployment)
    : deployment_(std::move(deployment)),
      builtin_(Deployment::defaults()),
      pool_(std::make_shared<Worker_pool>(kWorkerThreads)),
      random_(static_cast<std::uint32_t>(::getpid()) ^
              static_cast<std::uint32_t>(Clock::now().time_since_epoch().count()))
{
    client_id_ =
        deployment_.client_id != 0 ? deployment_.client_id : static_cast<std::uint16_t>((::getpid() & 0x7FFF) | 0x0100);
}

Runtime::~Runtime()
{
    stop();
}

void Runtime::start()
{
    if (running_.exchange(true)) {
        return;
    }
    wake_fd_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    io_thread_ = std::thread([this] { io_loop(); });
}

void Runtime::stop()
{
    if (!running_.exchange(false)) {
        return;
    }
    Outbox out;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (network_up_) {
            std::vector<someip::Sd_entry> stop_offers;
            for (const auto& item : local_offers_) {
                if (item.second->announced) {
                    stop_offers.push_back(offer_entry(*item.second, 0));
                }
            }
            if (!stop_offers.empty()) {
                send_sd(sd_group_, true, stop_offers);
            }
            for (const auto& item : groups_) {
                if (item.second->requested) {
                    send_sd(item.second->provider_sd, false, {subscribe_entry(*item.second, 0)});
                }
            }
        }
        for (auto& item : pending_) {
            auto handler = item.second->handler;
            out.calls.push_back([handler] { handler(Response{false, {}, {}, "runtime stopped"}); });
        }
        pending_.clear();
        request_deadlines_.clear();
    }
    wake();
    if (io_thread_.joinable()) {
        io_thread_.join();
    }
    out.run();
    pool_->stop();
    std::lock_guard<std::mutex> lock(mutex_);
    close_network();
    if (wake_fd_ >= 0) {
        (void)::close(wake_fd_);
        wake_fd_ = -1;
    }
}

const Service_deployment* Runtime::service(const std::string& name) const
{
    const Service_deployment* found = deployment_.service(name);
    return found != nullptr ? found : builtin_.service(name);
}

void Runtime::wake()
{
    if (wake_fd_ >= 0) {
        const std::uint64_t one = 1;
        while (::write(wake_fd_, &one, sizeof one) < 0 && errno == EINTR) {
        }
    }
}

void Runtime::io_loop()
{
    std::vector<std::uint8_t> drain(8);
    while (running_) {
        std::vector<pollfd> fds;
        int timeout_ms = 0;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            const auto now = Clock::now();
            if (!network_up_ && now >= network_retry_) {
                network_up_ = open_network(now);
            }
            fds.push_back({wake_fd_, POLLIN, 0});
            for (const auto& item : data_sockets_) {
                fds.push_back({item.first, POLLIN, 0});
            }
            if (sd_unicast_fd_ >= 0) {
                fds.push_back({sd_unicast_fd_, POLLIN, 0});
            }
            if (sd_multicast_fd_ >= 0) {
                fds.push_back({sd_multicast_fd_, POLLIN, 0});
            }
            const auto deadline = next_deadline();
            if (deadline == Clock::time_point::max()) {
                timeout_ms = kStopCheckMs;
            } else if (deadline > now) {
                timeout_ms = static_cast<int>(std::min<std::int64_t>(
                    std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count() + 1, kStopCheckMs));
            }
        }
        const int ready = ::poll(fds.data(), fds.size(), timeout_ms);
        if (ready < 0 && errno != EINTR) {
            Incident_log::report("runtime_error", {{"call", "poll"}, {"error", std::strerror(errno)}});
        }
        Outbox out;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            for (const auto& entry : fds) {
                if ((entry.revents & POLLIN) == 0) {
                    continue;
                }
                if (entry.fd == wake_fd_) {
                    (void)!::read(wake_fd_, drain.data(), drain.size());
                } else {
                    receive(entry.fd, entry.fd == sd_unicast_fd_ || entry.fd == sd_multicast_fd_,
                            entry.fd == sd_multicast_fd_, out);
                }
            }
            if (network_up_) {
                run_timers(Clock::now(), out);
            }
        }
        out.run();
    }
}

// Local offers and searches are the application's and few; everything peers fill
// sits in a deadline queue.
Runtime::Clock::time_point Runtime::next_deadline() const
{
    if (!network_up_) {
        return network_retry_;
    }
    Clock::time_point deadline =
        std::min({offer_expiry_.next(), subscriber_expiry_.next(), request_deadlines_.next()});
    for (const auto& item : local_offers_) {
        deadline = std::min(deadline, item.second->fd < 0 ? item.second->next_socket_try : item.second->next_send);
    }
    for (const auto& item : finds_) {
        deadline = std::min(deadline, item.second->next_send);
    }
    return deadline;
}

void Runtime::run_timers(Clock::time_point now, Outbox& out)
{
    run_offer_timers(now);
    run_find_timers(now);
    for (const auto& key : offer_expiry_.take_due(now)) {
        remove_remote_offer(key, "ttl_expired", out);
    }
    for (const auto& key : subscriber_expiry_.take_due(now)) {
        expire_subscriber(key);
    }
    for (const auto session : request_deadlines_.take_due(now)) {
        fail_pending(session, "Timeout exception", out);
    }
}

Runtime::Clock::duration Runtime::initial_delay()
{
    const Sd_timing& timing = deployment_.timing;
    std::uniform_int_distribution<std::uint32_t> pick(timing.initial_delay_min_ms, timing.initial_delay_max_ms);
    return std::chrono::milliseconds(pick(random_));
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

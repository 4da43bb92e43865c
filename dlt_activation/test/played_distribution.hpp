#ifndef STRATA_DLT_ACTIVATION_TEST_PLAYED_DISTRIBUTION_HPP
#define STRATA_DLT_ACTIVATION_TEST_PLAYED_DISTRIBUTION_HPP

#include <cstdint>
#include <future>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "dtc/test/loopback_runtime.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_skeleton.hpp"

// Plays the diagnostic data distribution service with an answer a test chooses, and
// remembers the requests it got.
class PlayedDistribution final
    : public lumo::services::diagnosticdatadistribution::skeleton::DiagnosticDataDistributionSkeleton {
public:
    using Ids = lumo::services::diagnosticdatadistribution::datatypes::DT_ListOfIds;

    struct Request {
        std::uint32_t arg;
        Ids ids;
    };

    PlayedDistribution() : DiagnosticDataDistributionSkeleton(vela::com::runtime::InstanceSpecifier("1")) {}

    void offer()
    {
        OfferService();
        offered_ = true;
    }

    // Ends the offer and waits until this process's own discovery has seen it end, so
    // that a later offer is not undone by the late arrival of this one's end.
    bool withdraw()
    {
        if (!offered_) {
            return true;
        }
        using Proxy = lumo::services::diagnosticdatadistribution::proxy::DiagnosticDataDistributionProxy;
        Arrivals<bool> gone;
        const auto search = Proxy::StartFindService(
            [&gone](vela::com::runtime::ServiceHandleContainer<vela::com::runtime::HandleType> handles) {
                if (handles.empty()) {
                    gone.push(true);
                }
            },
            vela::com::runtime::InstanceSpecifier("1"));
        StopOfferService();
        offered_ = false;
        const bool seen = gone.wait_for_count(1);
        Proxy::StopFindService(search);
        return seen;
    }

    void answer_with(std::vector<std::uint8_t> values, std::uint32_t return_code = 0)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        answer_.dataValues = std::move(values);
        answer_.returnCode = return_code;
        fail_ = false;
    }
    // Requests get no answer until release(): a service that hangs.
    void stall()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stalled_ = true;
    }
    void release()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stalled_ = false;
        for (auto& pending : pending_) {
            pending.set_value(answer_);
        }
        pending_.clear();
    }
    void fail_requests()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        fail_ = true;
    }
    std::vector<Request> requests()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }

    std::future<getDiagnosticDataValuesOutput> getDiagnosticDataValues(std::uint32_t arg, const Ids& ids) override
    {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back({arg, ids});
        if (fail_) {
            throw std::runtime_error("played failure");
        }
        if (stalled_) {
            pending_.emplace_back();
            return pending_.back().get_future();
        }
        std::promise<getDiagnosticDataValuesOutput> done;
        done.set_value(answer_);
        return done.get_future();
    }
    std::future<getDiagnosticDataOutput> getDiagnosticData(std::uint32_t, std::uint32_t) override
    {
        std::promise<getDiagnosticDataOutput> done;
        done.set_value({});
        return done.get_future();
    }

private:
    bool offered_{false};
    std::mutex mutex_;
    getDiagnosticDataValuesOutput answer_;
    bool fail_{false};
    bool stalled_{false};
    std::vector<std::promise<getDiagnosticDataValuesOutput>> pending_;
    std::vector<Request> requests_;
};

#endif

// SPDX-License-Identifier: Apache-2.0
#include <ara/log/logging.hpp>

#include <chrono>
#include <cstdint>
#include <exception>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "dlt_activation/dlt_flags.hpp"
#include "dlt_activation/i_dlt_activation_flag_observer.hpp"
#include "dtc/dtc_service.hpp"
#include "lumo/services/diagnosticdatadistribution/diagnosticdatadistribution_proxy.hpp"
#include "support/error_line.hpp"

namespace {
namespace ddd = lumo::services::diagnosticdatadistribution;
using Output = ddd::DiagnosticDataDistribution::getDiagnosticDataValues::Output;

// The data id whose first byte tells whether DLT logging is activated.
constexpr std::uint64_t dlt_activation_data_id = 0x50D;
constexpr std::uint8_t dlt_activated = 1;

// The request runs on a middleware thread that also delivers the next notification and
// the find results, and the main loop's shutdown waits for that thread when it stops the
// search. A service that never answers must not hold either for long.
// Guarded by dlt_request_mutex.
std::chrono::milliseconds answer_limit{5000};

const char* flag_text()
{
    return dlt_pm_flag.load() ? "DLT-flag = 1" : "DLT-flag = 0";
}

Output await_answer(std::future<Output>& answer)
{
    if (!answer.valid()) {
        throw std::future_error(std::future_errc::no_state);
    }
    // A deferred answer can only be had by asking for it; the runtime bounds that wait.
    if (answer.wait_for(answer_limit) == std::future_status::timeout) {
        throw std::runtime_error("getDiagnosticDataValues: no answer within " + std::to_string(answer_limit.count()) +
                                 " ms");
    }
    return answer.get();
}

void take_answer(const Output& output)
{
    if (output.returnCode != 0) {
        return;
    }
    const std::vector<std::uint8_t> values = output.dataValues;
    if (values.empty()) {
        // A usable answer must carry the value; without it the last known state stays.
        write_error_line("DLT Launcher: DDD DSA answer without data values; DLT flag unchanged");
        return;
    }
    dlt_pm_flag.store(values.front() == dlt_activated);
    flag_updated.store(true);
    write_error_line("Launcher: request_dlt_flag : flag_updated=true ");
    send_dtc(dlt_pm_flag.load());
}
}  // namespace

void request_dlt_flag(IDLTActivationFlagObserver& observer)
{
    std::lock_guard<std::mutex> lock(dlt_request_mutex);
    // Our own counted copy: a proxy replaced by a find result stays alive until we are done.
    const std::shared_ptr<IDLTActivationFlagObserver::Proxy> proxy = observer.getProxy();
    if (!proxy) {
        return;
    }
    try {
        const ddd::datatypes::DT_ListOfIds ids{dlt_activation_data_id};
        std::future<Output> answer = proxy->getDiagnosticDataValues(0, ids);
        take_answer(await_answer(answer));
    } catch (const std::exception& error) {
        write_error_line(std::string("DLT Launcher: DDD DSA connection lost ") + error.what());
    }
}

// Declared only in the tests, which cannot afford the full limit for each silent service.
std::chrono::milliseconds set_dlt_answer_limit_for_testing(std::chrono::milliseconds limit)
{
    std::lock_guard<std::mutex> lock(dlt_request_mutex);
    std::swap(limit, answer_limit);
    return limit;
}

void updateDltFlagFromService(IDLTActivationFlagObserver& observer)
{
    write_error_line(std::string("Get getDiagnosticDataValues start ") +
                     (observer.getProxy() ? "ProxyValid" : "ProxyNotAvailable"));
    request_dlt_flag(observer);
    write_error_line(std::string("Launcher: request from DSA :  ") + flag_text());
}

bool unsubscribe_data_values_hash(IDLTActivationFlagObserver& observer)
{
    const std::shared_ptr<IDLTActivationFlagObserver::Proxy> proxy = observer.getProxy();
    if (!proxy) {
        return false;
    }
    proxy->dataValuesHash.Unsubscribe();
    return true;
}

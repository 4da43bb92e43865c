// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/component_singleton.hpp"

#include <mutex>

#include "vela/com/runtime/deployment.hpp"
#include "vela/com/runtime/incident_log.hpp"
#include "vela/com/runtime/runtime.hpp"

namespace vela {
namespace com {
namespace runtime {

namespace {
std::mutex& instance_mutex()
{
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<Runtime>& instance()
{
    static std::shared_ptr<Runtime> runtime;
    return runtime;
}

Deployment read_deployment(const std::string& configuration)
{
    std::string note;
    Deployment deployment = Deployment::load(configuration, note);
    if (!note.empty()) {
        Incident_log::report("deployment", {{"note", note}});
    }
    return deployment;
}

std::shared_ptr<Runtime> start_locked(const std::string& configuration)
{
    auto& runtime = instance();
    if (!runtime) {
        runtime = std::make_shared<Runtime>(read_deployment(configuration));
        runtime->start();
    }
    return runtime;
}
}  // namespace

void Component_singleton::startup(bool, std::string configuration)
{
    try {
        std::lock_guard<std::mutex> lock(instance_mutex());
        (void)start_locked(configuration);
    } catch (const std::exception& e) {
        Incident_log::report("runtime_error", {{"call", "startup"}, {"error", e.what()}});
    }
}

void Component_singleton::shutdown()
{
    std::shared_ptr<Runtime> runtime;
    {
        std::lock_guard<std::mutex> lock(instance_mutex());
        runtime.swap(instance());
    }
    if (runtime) {
        runtime->stop();
    }
}

std::shared_ptr<Runtime> Component_singleton::acquire()
{
    std::lock_guard<std::mutex> lock(instance_mutex());
    return start_locked("");
}

std::shared_ptr<Runtime> Component_singleton::current()
{
    std::lock_guard<std::mutex> lock(instance_mutex());
    return instance();
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_COMPONENT_SINGLETON_HPP
#define VELA_COM_RUNTIME_COMPONENT_SINGLETON_HPP

#include <memory>
#include <string>

namespace vela {
namespace com {
namespace runtime {

class Runtime;

// Starts and stops the process's communication runtime (I/O loop, service discovery,
// worker threads). Both calls are idempotent and never throw.
class Component_singleton {
public:
    // `configuration`: "" reads the deployment from $STRATA_COM_DEPLOYMENT or the installed
    // default path; text starting with '{' is the deployment itself; anything else is a path.
    // `flag` is accepted for compatibility and has no effect.
    static void startup(bool flag, std::string configuration);
    static void shutdown();

    // The running runtime, started with the default deployment if none runs yet.
    static std::shared_ptr<Runtime> acquire();
    // The running runtime, or nullptr.
    static std::shared_ptr<Runtime> current();
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

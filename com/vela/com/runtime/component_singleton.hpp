#ifndef VELA_COM_RUNTIME_COMPONENT_SINGLETON_HPP
#define VELA_COM_RUNTIME_COMPONENT_SINGLETON_HPP

#include <string>

namespace vela {
namespace com {
namespace runtime {

// Starts and stops the process's communication runtime (I/O loop, service discovery,
// worker threads). Both calls are idempotent and never throw.
class Component_singleton {
public:
    static void startup(bool flag, std::string configuration);
    static void shutdown();
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

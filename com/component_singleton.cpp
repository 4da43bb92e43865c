#include "vela/com/runtime/component_singleton.hpp"

// Placeholder until the runtime lands.
namespace vela {
namespace com {
namespace runtime {
void Component_singleton::startup(bool, std::string) {}
void Component_singleton::shutdown() {}
}  // namespace runtime
}  // namespace com
}  // namespace vela

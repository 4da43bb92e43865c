// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_FWD_HPP
#define VELA_COM_RUNTIME_FWD_HPP

#include <vector>

namespace vela {
namespace com {
namespace runtime {
class HandleType;
class FindServiceHandle;
template <typename T>
using ServiceHandleContainer = std::vector<T>;
}  // namespace runtime
}  // namespace com
}  // namespace vela

namespace lumo {
namespace services {
namespace diagnosticdatadistribution {
namespace proxy {
class DiagnosticDataDistributionProxy;
}
}  // namespace diagnosticdatadistribution
}  // namespace services
}  // namespace lumo

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_SAMPLE_PTR_HPP
#define VELA_COM_RUNTIME_SAMPLE_PTR_HPP

#include <memory>

namespace vela {
namespace com {
namespace runtime {

// A received event sample handed to the application by GetNewSamples.
template <typename T>
using SamplePtr = std::unique_ptr<T>;

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_INSTANCE_SPECIFIER_HPP
#define VELA_COM_RUNTIME_INSTANCE_SPECIFIER_HPP

#include <string>
#include <utility>

namespace vela {
namespace com {
namespace runtime {

// Names a service instance as the application knows it; the deployment maps it to a wire instance ID.
class InstanceSpecifier {
public:
    explicit InstanceSpecifier(std::string specifier) : specifier_(std::move(specifier)) {}
    const std::string& ToString() const { return specifier_; }

private:
    std::string specifier_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#include "vela/com/runtime/handle_type.hpp"

#include <cstdio>

namespace vela {
namespace com {
namespace runtime {

std::string HandleType::to_string() const
{
    char text[64];
    (void)std::snprintf(text, sizeof text, "%04x.%04x v%u.%u @ ", service_id_, instance_id_,
                        static_cast<unsigned>(major_), static_cast<unsigned>(minor_));
    return text + endpoint_.to_string();
}

}  // namespace runtime
}  // namespace com
}  // namespace vela

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_SD_SESSION_COUNTER_HPP
#define VELA_COM_RUNTIME_SD_SESSION_COUNTER_HPP

#include <cstdint>

namespace vela {
namespace com {
namespace runtime {

// Session IDs of the service discovery messages sent on one relation (the multicast
// group or one unicast peer). They start at 1 with the reboot flag set; the flag stays
// set until the counter wraps, and 0 is never used.
class Sd_session_counter {
public:
    struct Stamp {
        std::uint16_t session;
        bool reboot;
    };

    Stamp next()
    {
        const Stamp stamp{session_, reboot_};
        if (session_ == 0xFFFF) {
            session_ = 1;
            reboot_ = false;
        } else {
            ++session_;
        }
        return stamp;
    }

private:
    std::uint16_t session_ = 1;
    bool reboot_ = true;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

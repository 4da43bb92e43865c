// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_COM_RUNTIME_SD_REBOOT_DETECTOR_HPP
#define VELA_COM_RUNTIME_SD_REBOOT_DETECTOR_HPP

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace vela {
namespace com {
namespace runtime {

// Remembers the last session ID and reboot flag of each peer per relation (multicast,
// unicast) and tells when a peer has restarted: its reboot flag went from 0 to 1, or
// stayed 1 while the session ID did not grow.
class Sd_reboot_detector {
public:
    bool observe(const std::string& peer, bool multicast, std::uint16_t session, bool reboot)
    {
        const auto key = std::make_pair(peer, multicast);
        const auto found = last_.find(key);
        bool rebooted = false;
        if (found != last_.end()) {
            const State& old = found->second;
            rebooted = (!old.reboot && reboot) || (old.reboot && reboot && session <= old.session);
        }
        last_[key] = State{session, reboot};
        return rebooted;
    }

    // After a detected reboot the other relation's history is stale as well.
    void forget(const std::string& peer)
    {
        last_.erase(std::make_pair(peer, true));
        last_.erase(std::make_pair(peer, false));
    }

private:
    struct State {
        std::uint16_t session;
        bool reboot;
    };
    std::map<std::pair<std::string, bool>, State> last_;
};

}  // namespace runtime
}  // namespace com
}  // namespace vela

#endif

// SPDX-License-Identifier: Apache-2.0
#ifndef VELA_DM_DEM_DIAGNOSTICMONITOR_COMMON_HPP
#define VELA_DM_DEM_DIAGNOSTICMONITOR_COMMON_HPP

#include <cstdint>

namespace vela {
namespace dm {
namespace dem {

constexpr const char* kDiagnosticMonitorServiceName = "vela::dm::dem::DiagnosticMonitor";

// Both are carried on the wire as one unsigned byte holding the enumerator's value.
enum class MonitorActionType : std::uint8_t {
    kPassed = 0,
    kFailed,
    kPrepassed,
    kPrefailed,
    kFdcThresholdReached,
    kResetTestFailed,
    kFreezeDebouncing,
    kResetDebouncing,
    kPrestore,
    kClearPrestore
};

enum class InitMonitorReasonType : std::uint8_t { kClear = 0, kRestart, kReenabled, kStorageReenabled };

}  // namespace dem
}  // namespace dm
}  // namespace vela

#endif

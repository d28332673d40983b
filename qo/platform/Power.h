// qo/platform/Power.h - the power source, the battery and keeping the
// machine awake (internal, OS-free).
//
// Windows: GetSystemPowerStatus; SetThreadExecutionState(ES_CONTINUOUS |
// ES_SYSTEM_REQUIRED), counted per thread. POSIX: the power supplies under
// /sys/class/power_supply (type, online, scope, capacity, status); a logind
// "sleep" inhibitor held by a child `systemd-inhibit --mode=block ... cat`
// whose stdin is a pipe of ours: closing it (or our death) lets cat end and
// the inhibitor go. Taking it is confirmed by reading back through cat a
// line written to it, so a refused inhibitor is seen at once.
//
//   PowerStatus s;
//   if (!powerGetStatus(nullptr, s) && s.source == PowerSource::Battery) ...;
//   KeepAwakeHandle h = nullptr; bool unavailable = false; std::string why;
//   if (!keepAwakeBegin(u"qo", u"backup", h, unavailable, why)) { ...; keepAwakeEnd(h); }
//
// Never throws.
#ifndef QO_PLATFORM_POWER_H
#define QO_PLATFORM_POWER_H

#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

enum class PowerSource { Unknown, AC, Battery };

struct PowerStatus {
  PowerSource source = PowerSource::Unknown;
  /// A battery that powers the system (not a mouse's).
  bool hasBattery = false;
  /// 0..100; -1 when unknown or without battery.
  int batteryPercent = -1;
  bool charging = false;
};

/// The power state. supplyFolder: POSIX the folder of power supplies (null:
/// "/sys/class/power_supply"; a missing folder means none); Windows
/// ignores it.
SysError powerGetStatus(char const* supplyFolder, PowerStatus& status);

struct NativeKeepAwake;
using KeepAwakeHandle = NativeKeepAwake*;

/// Keeps the system from sleeping until keepAwakeEnd. who and why name the
/// request where the system shows it. On failure unavailable tells that the
/// system offers no such request (POSIX: no systemd-inhibit, or logind
/// refused), with the system's words in detail (UTF-8).
SysError keepAwakeBegin(std::u16string const& who, std::u16string const& why, KeepAwakeHandle& handle,
                        bool& unavailable, std::string& detail);
/// Ends the request (Windows: on the thread that began it). Null does
/// nothing.
void keepAwakeEnd(KeepAwakeHandle handle);

}  // namespace qo::platform

#endif  // QO_PLATFORM_POWER_H

#include "qo/platform/Power.h"

#include <windows.h>

namespace qo::platform {

struct NativeKeepAwake {
  DWORD thread = 0;
};

namespace {
// The execution state belongs to the thread: nested requests on one thread
// share it, and only the last end clears it.
thread_local int t_keepAwakeCount = 0;
}  // namespace

SysError powerGetStatus(char const*, PowerStatus& status) {
  status = PowerStatus();
  SYSTEM_POWER_STATUS s;
  if (!GetSystemPowerStatus(&s)) return lastSysError();
  status.source = s.ACLineStatus == 1 ? PowerSource::AC : s.ACLineStatus == 0 ? PowerSource::Battery : PowerSource::Unknown;
  status.hasBattery = s.BatteryFlag != 255 && (s.BatteryFlag & 128) == 0;
  if (status.hasBattery && s.BatteryLifePercent <= 100) status.batteryPercent = s.BatteryLifePercent;
  status.charging = status.hasBattery && (s.BatteryFlag & 8) != 0;
  return SysError();
}

SysError keepAwakeBegin(std::u16string const&, std::u16string const&, KeepAwakeHandle& handle, bool& unavailable,
                        std::string& detail) {
  handle = nullptr;
  unavailable = false;
  detail.clear();
  if (t_keepAwakeCount == 0 && SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED) == 0)
    return lastSysError();
  ++t_keepAwakeCount;
  handle = new NativeKeepAwake;
  handle->thread = GetCurrentThreadId();
  return SysError();
}

void keepAwakeEnd(KeepAwakeHandle handle) {
  if (!handle) return;
  if (handle->thread == GetCurrentThreadId() && t_keepAwakeCount > 0 && --t_keepAwakeCount == 0)
    SetThreadExecutionState(ES_CONTINUOUS);
  delete handle;
}

}  // namespace qo::platform

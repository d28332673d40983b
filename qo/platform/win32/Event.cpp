#include "qo/platform/Event.h"

#include <windows.h>

namespace qo::platform {

namespace {
HANDLE native(NativeEvent* event) { return reinterpret_cast<HANDLE>(event); }
}  // namespace

SysError eventCreate(bool manualReset, bool initialState, NativeEvent*& event) {
  HANDLE h = CreateEventW(nullptr, manualReset ? TRUE : FALSE, initialState ? TRUE : FALSE, nullptr);
  event = reinterpret_cast<NativeEvent*>(h);
  if (!h) return lastSysError();
  return {};
}

void eventDestroy(NativeEvent* event) {
  if (event) CloseHandle(native(event));
}

SysError eventSet(NativeEvent* event) {
  if (!SetEvent(native(event))) return lastSysError();
  return {};
}

SysError eventReset(NativeEvent* event) {
  if (!ResetEvent(native(event))) return lastSysError();
  return {};
}

SysError eventWait(NativeEvent* event, int timeoutMillis, bool& signalled) {
  signalled = false;
  DWORD rc = WaitForSingleObject(native(event), timeoutMillis < 0 ? INFINITE : static_cast<DWORD>(timeoutMillis));
  if (rc == WAIT_OBJECT_0) {
    signalled = true;
    return {};
  }
  if (rc == WAIT_TIMEOUT) return {};
  return lastSysError();
}

void* eventNativeHandle(NativeEvent* event) { return event; }

}  // namespace qo::platform

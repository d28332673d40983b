#include "qo/platform/EventLog.h"

#include <windows.h>

namespace qo::platform {

struct NativeEventLog {
  HANDLE source = nullptr;
};

SysError eventLogOpen(std::u16string const& source, std::u16string const& target, EventLogHandle& handle) {
  handle = nullptr;
  HANDLE h = RegisterEventSourceW(target.empty() ? nullptr : reinterpret_cast<wchar_t const*>(target.c_str()),
                                  reinterpret_cast<wchar_t const*>(source.c_str()));
  if (!h) return lastSysError();
  handle = new NativeEventLog;
  handle->source = h;
  return SysError();
}

SysError eventLogWrite(EventLogHandle handle, EventType type, std::u16string const& message) {
  if (!handle) return SysError{ERROR_INVALID_HANDLE, sysErrorText(ERROR_INVALID_HANDLE)};
  WORD kind = type == EventType::Error     ? EVENTLOG_ERROR_TYPE
              : type == EventType::Warning ? EVENTLOG_WARNING_TYPE
                                           : EVENTLOG_INFORMATION_TYPE;
  LPCWSTR strings[1] = {reinterpret_cast<wchar_t const*>(message.c_str())};
  if (!ReportEventW(handle->source, kind, 0, 0, nullptr, 1, 0, strings, nullptr)) return lastSysError();
  return SysError();
}

void eventLogClose(EventLogHandle handle) {
  if (!handle) return;
  DeregisterEventSource(handle->source);
  delete handle;
}

}  // namespace qo::platform

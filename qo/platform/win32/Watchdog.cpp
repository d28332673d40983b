#include "qo/platform/Watchdog.h"

#include <windows.h>

namespace qo::platform {

SysError watchdogAllowTracer(std::uint64_t) { return SysError(); }

SysError watchdogLibraryPath(std::u16string& path) {
  path.clear();
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCWSTR>(reinterpret_cast<void const*>(&watchdogLibraryPath)), &module)) {
    return lastSysError("GetModuleHandleExW");
  }
  std::wstring buffer(1024, L'\0');
  for (;;) {
    DWORD const n = GetModuleFileNameW(module, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (n == 0) return lastSysError("GetModuleFileNameW");
    if (n < buffer.size()) {
      buffer.resize(n);
      break;
    }
    buffer.resize(buffer.size() * 2);
  }
  path.assign(buffer.begin(), buffer.end());
  return SysError();
}

bool watchdogProcessAlive(std::uint64_t processId) {
  HANDLE const process = OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, FALSE,
                                     static_cast<DWORD>(processId));
  if (process == nullptr) return false;
  bool const alive = WaitForSingleObject(process, 0) == WAIT_TIMEOUT;
  CloseHandle(process);
  return alive;
}

}  // namespace qo::platform

#include "qo/platform/Semaphore.h"

#include "qo/platform/win32/Win32Text.h"

#include <string>

#include <windows.h>

namespace qo::platform {

using win32text::widen;

namespace {

HANDLE native(NativeSemaphore* semaphore) { return reinterpret_cast<HANDLE>(semaphore); }

}  // namespace

SysError semaphoreCreate(char const* utf8Name, unsigned initialValue, unsigned maxValue, NativeSemaphore*& semaphore,
                         bool& created) {
  semaphore = nullptr;
  created = false;
  std::wstring name = widen(utf8Name);
  SetLastError(0);
  HANDLE h = CreateSemaphoreW(nullptr, static_cast<LONG>(initialValue), static_cast<LONG>(maxValue),
                              name.empty() ? nullptr : name.c_str());
  if (!h) return lastSysError();
  created = GetLastError() != ERROR_ALREADY_EXISTS;
  semaphore = reinterpret_cast<NativeSemaphore*>(h);
  return {};
}

SysError semaphoreOpen(char const* utf8Name, NativeSemaphore*& semaphore) {
  std::wstring name = widen(utf8Name);
  HANDLE h = OpenSemaphoreW(SEMAPHORE_MODIFY_STATE | SYNCHRONIZE, FALSE, name.c_str());
  semaphore = reinterpret_cast<NativeSemaphore*>(h);
  if (!h) return lastSysError();
  return {};
}

void semaphoreClose(NativeSemaphore* semaphore) {
  if (semaphore) CloseHandle(native(semaphore));
}

SysError semaphoreRelease(NativeSemaphore* semaphore) {
  if (!ReleaseSemaphore(native(semaphore), 1, nullptr)) return lastSysError();
  return {};
}

SysError semaphoreWait(NativeSemaphore* semaphore, int timeoutMillis, bool& acquired) {
  acquired = false;
  DWORD rc =
      WaitForSingleObject(native(semaphore), timeoutMillis < 0 ? INFINITE : static_cast<DWORD>(timeoutMillis));
  if (rc == WAIT_OBJECT_0) {
    acquired = true;
    return {};
  }
  if (rc == WAIT_TIMEOUT) return {};
  return lastSysError();
}

void semaphoreUnlink(char const*) {}

}  // namespace qo::platform

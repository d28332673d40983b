#include "qo/platform/IPCSemaphore.h"

#include <mutex>

#include <windows.h>

#include "qo/platform/win32/Win32Text.h"

namespace qo::platform {

struct IPCSemaphore {
  HANDLE handle = nullptr;
  std::mutex mutex;
  int held = 0;  // units this object took and did not give back
};

static SysError fail(char const* call, char const*& api) {
  api = call;
  return lastSysError();
}

SysError ipcSemaphoreOpen(std::string const& name, int count, IPCSemaphore*& semaphore, char const*& api) {
  semaphore = nullptr;
  if (name.empty() || name.find_first_of("/\\") != std::string::npos || name.size() > 80 || count < 1 ||
      count > 1024) {
    api = "CreateSemaphoreW";
    return SysError{ERROR_INVALID_PARAMETER, sysErrorText(ERROR_INVALID_PARAMETER)};
  }
  std::wstring const full = L"qo.ipc.sem." + win32text::widen(name.c_str());
  HANDLE h = CreateSemaphoreW(nullptr, count, count, full.c_str());
  if (!h) return fail("CreateSemaphoreW", api);
  semaphore = new IPCSemaphore;
  semaphore->handle = h;
  return SysError{};
}

SysError ipcSemaphoreTake(IPCSemaphore* s, int timeoutMs, bool& taken, char const*& api) {
  taken = false;
  DWORD const w = WaitForSingleObject(s->handle, timeoutMs < 0 ? INFINITE : static_cast<DWORD>(timeoutMs));
  if (w == WAIT_FAILED) return fail("WaitForSingleObject", api);
  if (w != WAIT_OBJECT_0) return SysError{};
  std::lock_guard<std::mutex> lock(s->mutex);
  ++s->held;
  taken = true;
  return SysError{};
}

SysError ipcSemaphoreGive(IPCSemaphore* s, char const*& api) {
  std::lock_guard<std::mutex> lock(s->mutex);
  if (s->held == 0) {
    api = "ReleaseSemaphore";
    return SysError{ERROR_TOO_MANY_POSTS, sysErrorText(ERROR_TOO_MANY_POSTS)};
  }
  if (!ReleaseSemaphore(s->handle, 1, nullptr)) return fail("ReleaseSemaphore", api);
  --s->held;
  return SysError{};
}

void ipcSemaphoreClose(IPCSemaphore* s) {
  if (!s) return;
  if (s->held > 0) ReleaseSemaphore(s->handle, s->held, nullptr);
  CloseHandle(s->handle);
  delete s;
}

}  // namespace qo::platform

#include "qo/platform/ThreadLocal.h"

#include <windows.h>

namespace qo::platform {

namespace {

// Keys with a thread-exit function. DllMain reads the table under the
// loader lock, so the table has its own lock, never held while calling out.
struct ExitKey {
  DWORD index;
  TlsThreadExitFunc func;
};
constexpr int kMaxExitKeys = 64;
SRWLOCK g_exitKeysLock = SRWLOCK_INIT;
ExitKey g_exitKeys[kMaxExitKeys];
int g_exitKeyCount = 0;

// Hands each value the ending thread still holds to its key's function, in
// rounds, as POSIX does with key destructors.
void runThreadExitFunctions() {
  for (int round = 0; round < 4; ++round) {
    ExitKey keys[kMaxExitKeys];
    int count = 0;
    AcquireSRWLockShared(&g_exitKeysLock);
    for (int i = 0; i < g_exitKeyCount; ++i) keys[count++] = g_exitKeys[i];
    ReleaseSRWLockShared(&g_exitKeysLock);
    bool any = false;
    for (int i = 0; i < count; ++i) {
      void* value = TlsGetValue(keys[i].index);
      if (value == nullptr) continue;
      TlsSetValue(keys[i].index, nullptr);
      keys[i].func(value);
      any = true;
    }
    if (!any) return;
  }
}

}  // namespace

SysError tlsCreate(NativeTlsKey& key, TlsThreadExitFunc onThreadExit) {
  DWORD index = TlsAlloc();
  if (index == TLS_OUT_OF_INDEXES) return lastSysError();
  if (onThreadExit != nullptr) {
    AcquireSRWLockExclusive(&g_exitKeysLock);
    bool const room = g_exitKeyCount < kMaxExitKeys;
    if (room) g_exitKeys[g_exitKeyCount++] = ExitKey{index, onThreadExit};
    ReleaseSRWLockExclusive(&g_exitKeysLock);
    if (!room) {
      TlsFree(index);
      return SysError{ERROR_NOT_ENOUGH_MEMORY, sysErrorText(ERROR_NOT_ENOUGH_MEMORY)};
    }
  }
  key.value = index;
  return {};
}

void tlsDestroy(NativeTlsKey key) {
  DWORD const index = static_cast<DWORD>(key.value);
  AcquireSRWLockExclusive(&g_exitKeysLock);
  for (int i = 0; i < g_exitKeyCount; ++i) {
    if (g_exitKeys[i].index == index) {
      g_exitKeys[i] = g_exitKeys[--g_exitKeyCount];
      break;
    }
  }
  ReleaseSRWLockExclusive(&g_exitKeysLock);
  TlsFree(index);
}

void* tlsGet(NativeTlsKey key) {
  // TlsGetValue clears the last error on success; callers must not see that.
  DWORD saved = GetLastError();
  void* value = TlsGetValue(static_cast<DWORD>(key.value));
  SetLastError(saved);
  return value;
}

SysError tlsSet(NativeTlsKey key, void* value) {
  if (!TlsSetValue(static_cast<DWORD>(key.value), value)) return lastSysError();
  return {};
}

}  // namespace qo::platform

// The library is a DLL: every thread that ends, whoever started it, passes
// here, which is where its thread-local values are let go.
extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_THREAD_DETACH) qo::platform::runThreadExitFunctions();
  return TRUE;
}

#include "qo/platform/Mutex.h"

#include <new>

#include <windows.h>

namespace qo::platform {

static CRITICAL_SECTION* native(NativeMutex& m) {
  static_assert(sizeof(CRITICAL_SECTION) <= sizeof m.bytes, "grow NativeMutex");
  static_assert(alignof(CRITICAL_SECTION) <= alignof(NativeMutex), "align NativeMutex");
  return std::launder(reinterpret_cast<CRITICAL_SECTION*>(m.bytes));
}

void mutexInit(NativeMutex& m) { InitializeCriticalSection(new (m.bytes) CRITICAL_SECTION); }
void mutexLock(NativeMutex& m) { EnterCriticalSection(native(m)); }
bool mutexTryLock(NativeMutex& m) { return TryEnterCriticalSection(native(m)) != FALSE; }
void mutexUnlock(NativeMutex& m) { LeaveCriticalSection(native(m)); }
void mutexDestroy(NativeMutex& m) { DeleteCriticalSection(native(m)); }

}  // namespace qo::platform

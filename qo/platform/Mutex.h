// qo/platform/Mutex.h - recursive OS mutex (internal, OS-free).
//
// A critical section on Windows, a recursive pthread mutex elsewhere. The
// native object lives in inline storage that each platform source checks
// with static_assert, so no OS header reaches class code.
#ifndef QO_PLATFORM_MUTEX_H
#define QO_PLATFORM_MUTEX_H

namespace qo::platform {

/// Raw room for the native mutex; each platform source asserts it fits.
struct NativeMutex {
  alignas(8) unsigned char bytes[64];
};

void mutexInit(NativeMutex& m);  ///< Recursive for its owner.
void mutexLock(NativeMutex& m);
bool mutexTryLock(NativeMutex& m);  ///< True when this thread now holds it.
void mutexUnlock(NativeMutex& m);   ///< Holder only.
void mutexDestroy(NativeMutex& m);  ///< Must not be held.

}  // namespace qo::platform

#endif  // QO_PLATFORM_MUTEX_H

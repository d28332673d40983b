#include "qo/platform/Mutex.h"

#include <new>

#include <pthread.h>

namespace qo::platform {

static pthread_mutex_t* native(NativeMutex& m) {
  static_assert(sizeof(pthread_mutex_t) <= sizeof m.bytes, "grow NativeMutex");
  static_assert(alignof(pthread_mutex_t) <= alignof(NativeMutex), "align NativeMutex");
  return std::launder(reinterpret_cast<pthread_mutex_t*>(m.bytes));
}

void mutexInit(NativeMutex& m) {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(new (m.bytes) pthread_mutex_t, &attr);
  pthread_mutexattr_destroy(&attr);
}

void mutexLock(NativeMutex& m) { pthread_mutex_lock(native(m)); }
bool mutexTryLock(NativeMutex& m) { return pthread_mutex_trylock(native(m)) == 0; }
void mutexUnlock(NativeMutex& m) { pthread_mutex_unlock(native(m)); }
void mutexDestroy(NativeMutex& m) { pthread_mutex_destroy(native(m)); }

}  // namespace qo::platform

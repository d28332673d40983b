#include "qo/thread/CMutex.h"

#include <new>

namespace qo {

CMutex::CMutex() { platform::mutexInit(m_native); }
CMutex::~CMutex() { platform::mutexDestroy(m_native); }
void CMutex::lock() { platform::mutexLock(m_native); }
void CMutex::unlock() { platform::mutexUnlock(m_native); }
bool CMutex::tryLock() { return platform::mutexTryLock(m_native); }

CMutex& getGlobalMutex() {
  // Built in static storage and never destroyed: disposers may run after
  // static destructors have started.
  alignas(CMutex) static unsigned char storage[sizeof(CMutex)];
  static CMutex* mutex = ::new (storage) CMutex;
  return *mutex;
}

}  // namespace qo

// qo/thread/CMutexUnlock.h - leaves a held lock open for the life of a scope.
//
//   CMutexLock lock(m_mutex);
//   ...
//   { CMutexUnlock open(m_mutex); sleep(100); }  // others may lock meanwhile
//   ...                                         // held again here
// For a recursive CMutex, only one level is opened: a caller holding it
// twice keeps it.
#ifndef QO_THREAD_CMUTEXUNLOCK_H
#define QO_THREAD_CMUTEXUNLOCK_H

#include "qo/thread/CMutex.h"

namespace qo {

/// Unlocks in its constructor, locks again in its destructor. Holder only;
/// the mutex must outlive it. Not copyable.
class CMutexUnlock {
public:
  explicit CMutexUnlock(CMutex& mutex) : m_mutex(mutex) { m_mutex.unlock(); }
  ~CMutexUnlock() { m_mutex.lock(); }
  CMutexUnlock(CMutexUnlock const&) = delete;
  CMutexUnlock& operator=(CMutexUnlock const&) = delete;

private:
  CMutex& m_mutex;
};

}  // namespace qo

#endif  // QO_THREAD_CMUTEXUNLOCK_H

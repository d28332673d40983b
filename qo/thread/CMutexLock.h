// qo/thread/CMutexLock.h - holds a lock for the life of a scope.
//
//   { CMutexLock lock(m_mutex); ... }  // unlocked at scope end, also on throw
#ifndef QO_THREAD_CMUTEXLOCK_H
#define QO_THREAD_CMUTEXLOCK_H

#include "qo/thread/IMutex.h"

namespace qo {

/// Locks in its constructor, unlocks in its destructor. The mutex must
/// outlive the lock. Not copyable.
class CMutexLock {
public:
  explicit CMutexLock(IMutex& mutex) : m_mutex(mutex) { m_mutex.lock(); }
  ~CMutexLock() { m_mutex.unlock(); }
  CMutexLock(CMutexLock const&) = delete;
  CMutexLock& operator=(CMutexLock const&) = delete;

private:
  IMutex& m_mutex;
};

}  // namespace qo

#endif  // QO_THREAD_CMUTEXLOCK_H

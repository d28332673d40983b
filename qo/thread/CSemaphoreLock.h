// qo/thread/CSemaphoreLock.h - holds one permit of a semaphore for a scope.
//
//   { CSemaphoreLock permit(&m_slots); ... }  // returned at scope end
#ifndef QO_THREAD_CSEMAPHORELOCK_H
#define QO_THREAD_CSEMAPHORELOCK_H

#include "qo/core/Export.h"
#include "qo/thread/ISemaphore.h"

namespace qo {

/// Takes a permit (no time limit) on construction, returns it on
/// destruction. The semaphore must outlive the lock. Not copyable; not
/// thread-safe (one scope).
class QO_API CSemaphoreLock {
public:
  /// Throws what decValue throws.
  explicit CSemaphoreLock(ISemaphore* semaphore);
  /// A failing incValue is logged, never thrown.
  ~CSemaphoreLock();
  CSemaphoreLock(CSemaphoreLock const&) = delete;
  CSemaphoreLock& operator=(CSemaphoreLock const&) = delete;

private:
  ISemaphore* m_pSemaphore;
};

}  // namespace qo

#endif  // QO_THREAD_CSEMAPHORELOCK_H

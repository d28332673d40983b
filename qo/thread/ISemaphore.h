// qo/thread/ISemaphore.h - a counting semaphore.
//
//   if (sem->decValue(1000)) { ...use the permit...; sem->incValue(); }
// CSemaphoreLock takes and returns one permit for a scope.
#ifndef QO_THREAD_ISEMAPHORE_H
#define QO_THREAD_ISEMAPHORE_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// Counting semaphore; any thread may return a permit. Thread-safe.
class QO_API ISemaphore : public virtual IBase {
public:
  /// Takes one permit, waiting up to timeoutMillis (-1: no limit, 0: only
  /// try). True when taken, false when the time ran out. Throws a
  /// CSystemError when the wait fails.
  [[nodiscard]] virtual bool decValue(int timeoutMillis) = 0;
  /// Returns one permit, releasing one waiter. Throws a CSystemError when
  /// the semaphore refuses (more permits than its maximum).
  virtual void incValue() = 0;
};

}  // namespace qo

#endif  // QO_THREAD_ISEMAPHORE_H

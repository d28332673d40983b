// qo/thread/CMutexWithStarveProtection.h - a recursive lock that a thread
// releasing it cannot take back before a thread already waiting.
//
// A plain mutex lets a thread that unlocks and at once locks again win over
// a waiter, again and again. Here a waiter first takes a second lock, the
// gate, and holds it while it waits for the main lock; a releasing thread
// that wants the lock again queues at the gate, behind the waiter. Nested
// locks by the holder only count (a per-thread count in thread-local
// storage) and never touch the gate.
//
//   CMutexWithStarveProtection m_mutex;
//   { CMutexLock lock(m_mutex); ... }
// An unlock() by a thread that does not hold the lock is ignored.
#ifndef QO_THREAD_CMUTEXWITHSTARVEPROTECTION_H
#define QO_THREAD_CMUTEXWITHSTARVEPROTECTION_H

#include "qo/core/Export.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CThreadLocalStorage.h"

namespace qo {

/// Recursive lock with a gate against starvation. Thread-safe; not copyable.
class QO_API CMutexWithStarveProtection : public CMutex {
public:
  CMutexWithStarveProtection();
  ~CMutexWithStarveProtection() override;  ///< Must not be held.

  /// Blocks until this thread holds the lock; the holder may lock again.
  /// Throws CSystemError when the thread's count cannot be stored.
  void lock() override;
  /// Holder: gives up one level, the lock with the last one. Others:
  /// nothing.
  void unlock() override;
  /// Would bypass the gate and the count.
  bool tryLock() = delete;

  /// The calling thread's nesting depth (0 when it does not hold the lock).
  [[nodiscard]] long long getRecursionCount() const;

protected:
  /// The gate, for subclasses and tests that must see a waiter queued.
  CMutex& getGate() noexcept { return m_gate; }

private:
  CMutex m_gate;
  CThreadLocalStorage m_recursionCount;  // TSimpleType<long long> per thread
};

}  // namespace qo

#endif  // QO_THREAD_CMUTEXWITHSTARVEPROTECTION_H

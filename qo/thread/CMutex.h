// qo/thread/CMutex.h - recursive lock for shared state.
//
// The holder may lock again and must unlock as often. Use the scoped form:
//   CMutexLock lock(m_mutex);  // released at scope end, also on throw
// A critical section on Windows, a recursive pthread mutex elsewhere.
//
// getGlobalMutex() is the library's one process-wide mutex, for the rare
// operations that must be serialised across all of qo (CSafeGlobalDisposer).
#ifndef QO_THREAD_CMUTEX_H
#define QO_THREAD_CMUTEX_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/platform/Mutex.h"
#include "qo/thread/IMutex.h"

namespace qo {

/// Recursive mutual-exclusion lock. Thread-safe; not copyable.
class QO_API CMutex : public CBase, public IMutex {
public:
  CMutex();
  ~CMutex() override;  ///< Must not be held.
  CMutex(CMutex const&) = delete;
  CMutex& operator=(CMutex const&) = delete;

  void lock() override;    ///< Blocks until this thread holds it.
  void unlock() override;  ///< Holder only, once per lock().
  /// Takes the lock if that needs no wait; true when taken.
  [[nodiscard]] bool tryLock();

private:
  platform::NativeMutex m_native;
};

/// The library's process-wide mutex. Created on first use, never destroyed
/// (so it stays usable by code running at process exit). Thread-safe.
QO_API CMutex& getGlobalMutex();

}  // namespace qo

#endif  // QO_THREAD_CMUTEX_H

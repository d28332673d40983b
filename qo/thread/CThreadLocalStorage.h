// qo/thread/CThreadLocalStorage.h - one value per thread.
//
//   CThreadLocalStorage m_counter;                    // a slot of its own
//   m_counter.setValue(newP<TSimpleType<int>>(0).get());
//   P<IBase> v = m_counter.getValue();                // this thread's value
// Values are P<IBase>; each thread sees only its own. A CThread releases its
// values when it ends (CThreadLocalStorageManager::releaseAllThreadValues).
#ifndef QO_THREAD_CTHREADLOCALSTORAGE_H
#define QO_THREAD_CTHREADLOCALSTORAGE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"

namespace qo {

class CThreadLocalStorageManager;

/// A thread-local slot holding P<IBase>. Thread-safe (each thread sees its
/// own value).
class QO_API CThreadLocalStorage : public CBase {
public:
  /// Takes a new slot from CThreadLocalStorageManager::get(), which it keeps
  /// alive.
  CThreadLocalStorage();
  /// Values stored by other threads stay until those threads release theirs.
  ~CThreadLocalStorage() override;
  CThreadLocalStorage(CThreadLocalStorage const&) = delete;
  CThreadLocalStorage& operator=(CThreadLocalStorage const&) = delete;

  /// The calling thread's value, or null when it stored none.
  [[nodiscard]] P<IBase> getValue() const;
  /// Stores value (shared) for the calling thread; null removes it. Throws
  /// CSystemError when the thread's map cannot be stored.
  void setValue(IBase* value);
  /// The slot number.
  [[nodiscard]] int getSlot() const noexcept { return m_slot; }

private:
  P<CThreadLocalStorageManager> m_manager;
  int m_slot;
};

}  // namespace qo

#endif  // QO_THREAD_CTHREADLOCALSTORAGE_H

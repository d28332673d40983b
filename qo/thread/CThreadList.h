// qo/thread/CThreadList.h - the process-wide registry of CThreads.
//
// Every CThread adds itself on construction and removes itself on
// destruction; the list does not own them. At shutdown CQoInit stops the
// library's threads through it:
//   if (!CThreadList::get()->stopAllThreads(30000, true)) ...warn...
#ifndef QO_THREAD_CTHREADLIST_H
#define QO_THREAD_CTHREADLIST_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/TList.h"
#include "qo/thread/CMutex.h"

namespace qo {

class CThread;

/// Registry of the live CThread objects (raw, not owning). Thread-safe.
class QO_API CThreadList : public CBase {
public:
  CThreadList();
  ~CThreadList() override;
  CThreadList(CThreadList const&) = delete;
  CThreadList& operator=(CThreadList const&) = delete;

  /// The process-wide list, created on first use. Thread-safe.
  static P<CThreadList> const& get();
  /// Disposes the process-wide list; the next get() creates a new one.
  /// Not thread-safe with get().
  static void disposeGlobalInstance();

  /// Lists thread (CThread's constructor does this). Thread-safe.
  void add(CThread* thread);
  /// Unlists thread; one that is not listed is ignored. Thread-safe.
  void remove(CThread* thread);

  /// Signals every listed thread to stop (with onlyStopBeforeProcessExits:
  /// only those whose getStopBeforeProcessExits() is true) and waits, in
  /// steps of 100 ms with the list open to changes, until none of those is
  /// alive: true. timeoutMillis -1 waits without limit; otherwise false once
  /// the time has passed and one still lives. Throws what isAlive() throws.
  /// Thread-safe.
  [[nodiscard]] bool stopAllThreads(int timeoutMillis, bool onlyStopBeforeProcessExits);

  /// The number of listed threads. Thread-safe.
  [[nodiscard]] int getSize() const;

private:
  bool anySelectedAlive(bool onlyStopBeforeProcessExits) const;

  mutable CMutex m_mutex;
  TList<CThread*> m_threads;
};

}  // namespace qo

#endif  // QO_THREAD_CTHREADLIST_H

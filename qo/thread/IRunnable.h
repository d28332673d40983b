// qo/thread/IRunnable.h - a body for a CThread.
//
//   class CWork : public CBase, public IRunnable { void run() override { ... } };
//   P<CThread> t = newP<CThread>(newP<CWork>().get());
//   t->start();
// An exception that leaves run() becomes the thread's error (CThread).
#ifndef QO_THREAD_IRUNNABLE_H
#define QO_THREAD_IRUNNABLE_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// Work to run on a thread.
class QO_API IRunnable : public virtual IBase {
public:
  /// Runs the work on the calling thread; may throw.
  virtual void run() = 0;
};

}  // namespace qo

#endif  // QO_THREAD_IRUNNABLE_H

// qo/thread/IMutex.h - the lock interface taken by CMutexLock.
#ifndef QO_THREAD_IMUTEX_H
#define QO_THREAD_IMUTEX_H

#include "qo/core/IBase.h"

namespace qo {

/// A lock: lock() blocks until the caller holds it, unlock() gives it up.
/// Whether it is recursive, and who may unlock, is the implementation's
/// contract (CMutex: recursive, holder only).
class QO_API IMutex : public virtual IBase {
public:
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

}  // namespace qo

#endif  // QO_THREAD_IMUTEX_H

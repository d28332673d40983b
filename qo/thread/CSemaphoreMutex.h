// qo/thread/CSemaphoreMutex.h - a lock made of a one-permit semaphore.
//
// Unlike CMutex it is not recursive (a second lock() by the holder waits
// forever) and any thread may unlock it, which suits a lock handed from one
// thread to another.
//   CSemaphoreMutex m; { CMutexLock lock(m); ... }
#ifndef QO_THREAD_CSEMAPHOREMUTEX_H
#define QO_THREAD_CSEMAPHOREMUTEX_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/thread/CWindowsSemaphore.h"
#include "qo/thread/IMutex.h"

namespace qo {

/// Non-recursive lock that any thread may release. Thread-safe; not
/// copyable.
class QO_API CSemaphoreMutex : public CBase, public IMutex {
public:
  CSemaphoreMutex();
  ~CSemaphoreMutex() override;
  CSemaphoreMutex(CSemaphoreMutex const&) = delete;
  CSemaphoreMutex& operator=(CSemaphoreMutex const&) = delete;

  /// Takes the one permit, waiting without limit.
  void lock() override;
  /// Returns the permit. Throws CSystemError when it is not taken.
  void unlock() override;

private:
  CWindowsSemaphore m_semaphore;
};

}  // namespace qo

#endif  // QO_THREAD_CSEMAPHOREMUTEX_H

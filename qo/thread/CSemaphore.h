// qo/thread/CSemaphore.h - an unnamed counting semaphore within the process.
//
//   CSemaphore slots(4);
//   if (slots.decValue(-1)) { ...; slots.incValue(); }
// Timeouts are milliseconds, -1 meaning no limit, as everywhere in qo.
#ifndef QO_THREAD_CSEMAPHORE_H
#define QO_THREAD_CSEMAPHORE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/thread/CWindowsSemaphore.h"
#include "qo/thread/ISemaphore.h"

namespace qo {

/// Counting semaphore (at most 0x7fffffff permits) over an unnamed OS
/// semaphore. Thread-safe; not copyable.
class QO_API CSemaphore : public CBase, public ISemaphore {
public:
  /// Starts with initialValue permits. Throws CSystemError
  /// ("CWindowsSemaphore::constructCreateOrOpen") above 0x7fffffff.
  explicit CSemaphore(unsigned int initialValue);
  ~CSemaphore() override;
  CSemaphore(CSemaphore const&) = delete;
  CSemaphore& operator=(CSemaphore const&) = delete;

  /// Takes one permit within timeoutMillis (-1: no limit); true when taken.
  [[nodiscard]] bool decValue(int timeoutMillis) override;
  /// Returns one permit.
  void incValue() override;

private:
  CWindowsSemaphore m_semaphore;
};

}  // namespace qo

#endif  // QO_THREAD_CSEMAPHORE_H

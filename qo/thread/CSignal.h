// qo/thread/CSignal.h - a flag that threads can wait for.
//
// A manual-reset event, created unset: set() releases every waiter and
// stays set until reset().
//   CSignal m_workArrived;
//   producer: m_workArrived.set();
//   consumer: if (m_workArrived.wait(1000)) ...
#ifndef QO_THREAD_CSIGNAL_H
#define QO_THREAD_CSIGNAL_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/thread/CWindowsEvent.h"

namespace qo {

/// Manual-reset event, initially unset. Thread-safe; not copyable.
class QO_API CSignal : public CBase {
public:
  /// Throws CSystemError (function "CSignal constructor", api "CreateEvent").
  CSignal();
  ~CSignal() override;  ///< No thread may be waiting.
  CSignal(CSignal const&) = delete;
  CSignal& operator=(CSignal const&) = delete;

  /// Sets the signal. Throws CSystemError ("CSignal::set", "SetEvent").
  void set();
  /// Clears it. Throws CSystemError ("CSignal::reset", "ResetEvent").
  void reset();
  /// Whether it is set now (wait(0)).
  [[nodiscard]] bool isSet();
  /// True once set, false when timeoutMillis (-1: no limit) passed first.
  /// Throws CSystemError ("CSignal::wait", "WaitForSingleObject").
  [[nodiscard]] bool wait(int timeoutMillis);

private:
  CWindowsEvent m_event;
};

}  // namespace qo

#endif  // QO_THREAD_CSIGNAL_H

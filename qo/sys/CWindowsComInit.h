// qo/sys/CWindowsComInit.h - COM started on the thread that starts the
// library.
//
// CQoInit creates it first among its singletons (then
// CWindowsComSecurityInit, which needs COM): on Windows it calls
// CoInitializeEx for the multithreaded apartment on the creating thread
// and, at disposal on that thread, the matching CoUninitialize. A thread
// that already chose the single-threaded apartment keeps it (COM is usable
// there all the same). On Linux there is no COM: the object exists so that
// the start order is the same everywhere, and does nothing
// (isAvailable() false, getResult() 0).
//
//   if (CWindowsComInit::get()->isInitialized()) { ... use COM on this thread ... }
//
// Thread-safe.
#ifndef QO_SYS_CWINDOWSCOMINIT_H
#define QO_SYS_CWINDOWSCOMINIT_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"

namespace qo {

/// COM on the library's starting thread. Thread-safe.
class QO_API CWindowsComInit : public CBase {
public:
  /// Starts COM on the calling thread; never throws (see getResult).
  CWindowsComInit();
  /// Stops COM again when this thread started it and is the creating one.
  ~CWindowsComInit() override;
  CWindowsComInit(CWindowsComInit const&) = delete;
  CWindowsComInit& operator=(CWindowsComInit const&) = delete;

  /// The process-wide instance, created on first call. Thread-safe.
  static P<CWindowsComInit> const& get();

  /// True where the system has COM (Windows). Thread-safe.
  bool isAvailable() const noexcept { return m_available; }
  /// True when COM is usable on the creating thread (started now, before,
  /// or with the other apartment model). False on Linux. Thread-safe.
  bool isInitialized() const noexcept;
  /// CoInitializeEx's HRESULT (0 on Linux). Thread-safe.
  long getResult() const noexcept { return m_result; }
  /// The OS id of the creating thread. Thread-safe.
  unsigned long long getThreadID() const noexcept { return m_threadId; }

private:
  bool m_available;
  bool m_mustUninit = false;
  long m_result;
  unsigned long long m_threadId;
};

}  // namespace qo

#endif  // QO_SYS_CWINDOWSCOMINIT_H

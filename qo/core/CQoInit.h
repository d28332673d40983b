// qo/core/CQoInit.h - starts and stops the library.
//
// An application keeps one CQoInit alive for as long as it uses qo:
//   int main() {
//     qo::CQoInit init;  // before anything else of qo
//     ...
//   }                    // stops the library's threads, disposes singletons
// Construction creates the thread list, sets the C locale to the
// environment's default when it is still "C" (a locale the application
// chose stays), switches off the OS's critical-error dialogs, and creates the
// singletons that must exist early, in this order: CWindowsComInit,
// CWindowsComSecurityInit (COM and its security; nothing on Linux), the
// thread-local storage manager, CSystemSignalReceiver (which leaves
// interrupt and terminate as they were until a listener registers) and the
// cached environment variables.
// Destruction signals every library thread that must stop before the process
// exits and waits for them up to 30000 ms in all (a warning goes to the
// debugger output when some do not end), then disposes every singleton
// (CSafeGlobalSlot::disposeAll, newest first) and runs the
// CSafeGlobalDisposer functions.
#ifndef QO_CORE_CQOINIT_H
#define QO_CORE_CQOINIT_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"

namespace qo {

/// The library's start-and-stop guard. Not thread-safe: create and destroy
/// it on the main thread, one at a time.
class QO_API CQoInit : public CBase {
public:
  CQoInit();
  ~CQoInit() override;
  CQoInit(CQoInit const&) = delete;
  CQoInit& operator=(CQoInit const&) = delete;

  /// The process-wide part of the start: created once through its own slot
  /// by the first CQoInit; disposed with the other singletons.
  class QO_API CQoInitHelper : public CBase {
  public:
    CQoInitHelper();
    ~CQoInitHelper() override;
    /// The helper singleton, created on first call. Thread-safe.
    static P<CQoInitHelper> const& get();
  };
};

}  // namespace qo

#endif  // QO_CORE_CQOINIT_H

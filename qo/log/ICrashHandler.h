// qo/log/ICrashHandler.h - what receives a crash.
//
// CCrashManager calls the global handler on the crashing thread with the
// crash filled into a slot and that slot's prepared tools. The call runs
// inside a process whose heap and locks may be broken: an implementation
// must not allocate, lock or throw, and should only use the tools' files and
// buffers and what it prepared when it was constructed (CCrashHandler).
//
//   class CMyHandler : public CBase, public ICrashHandler {
//     void handleCrash(CCrashInfo& info, CCrashTools& tools) override { ... }
//   };
//   CCrashManager::get()->setGlobalHandler(newP<CMyHandler>().get());
#ifndef QO_LOG_ICRASHHANDLER_H
#define QO_LOG_ICRASHHANDLER_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

class CCrashInfo;
class CCrashTools;

/// Receives crashes. Called on the crashing thread; several threads may
/// call it at once with different slots.
class QO_API ICrashHandler : public virtual IBase {
public:
  /// Reports the crash described by info, using tools. Must not allocate,
  /// lock or throw.
  virtual void handleCrash(CCrashInfo& info, CCrashTools& tools) = 0;
};

}  // namespace qo

#endif  // QO_LOG_ICRASHHANDLER_H

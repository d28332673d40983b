// qo/log/ICrashDumpWriter.h - writes the minidump of a crash in place of the
// crashed process itself.
//
// CCrashHandler asks its dump writer (CCrashHandler::setDumpWriter) first and
// writes the dump from inside the process only when there is none or it
// answers false. The crash watchdog (CWatchdog) is one: it has a helper
// process write the dump from outside, with every thread's stack.
//
//   class CMyDumper : public CBase, public ICrashDumpWriter {
//     bool writeCrashDump(CCrashInfo const& info, wchar_t const* path) noexcept override;
//   };
#ifndef QO_LOG_ICRASHDUMPWRITER_H
#define QO_LOG_ICRASHDUMPWRITER_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

class CCrashInfo;

/// Writes crash minidumps. Called on the crashing thread, on the crash
/// path: must not allocate, lock or throw.
class QO_API ICrashDumpWriter : public virtual IBase {
public:
  /// Writes the minidump of the crash described by info to path (a
  /// Windows-syntax path, as CCrashHandler builds it). True when the dump
  /// was written; false to let the caller write it itself.
  virtual bool writeCrashDump(CCrashInfo const& info, wchar_t const* path) noexcept = 0;
};

}  // namespace qo

#endif  // QO_LOG_ICRASHDUMPWRITER_H

// qo/core/ErrorLog.h - where the library reports failures that it catches
// and does not pass on (a thread body's exception, an error inside a
// destructor, a stream fault that a caller may swallow).
//
// logError hands the error and a one-line summary to the installed hook.
// Without a hook it writes "ERROR: <summary> <description>\n" to the
// debugger output (standard error on POSIX). The session log installs its
// hook when it starts, so that these reports land in the log file.
//
//   setErrorLogHook([](CError const& e, String const& summary) { ... });
//   catch (std::exception const& e) { logError(e, u"CThread::runImpl threw an exception."); }
#ifndef QO_CORE_ERRORLOG_H
#define QO_CORE_ERRORLOG_H

#include <exception>

#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// Receives a caught failure and its summary. Must not throw (what it
/// throws is dropped); may be called on any thread, also concurrently.
using ErrorLogHook = void (*)(CError const& error, String const& summary);

/// Installs hook (null: back to the debugger output) and returns the one it
/// replaces. A report already running may still reach the old hook.
/// Thread-safe.
QO_API ErrorLogHook setErrorLogHook(ErrorLogHook hook);

/// The installed hook, or null. Thread-safe.
QO_API ErrorLogHook getErrorLogHook();

/// Reports error with summary. Never throws. Thread-safe.
QO_API void logError(CError const& error, String const& summary) noexcept;

/// Reports any standard exception: a CError as it is, any other one as the
/// CStdExceptionError made from it. Never throws. Thread-safe.
QO_API void logError(std::exception const& exception, String const& summary) noexcept;

}  // namespace qo

#endif  // QO_CORE_ERRORLOG_H

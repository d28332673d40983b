// qo/log/logFunctions.h - logging from anywhere into the process's session
// log (CXMLLog::getGlobal()).
//
// Each function forwards to the method of the same name of the global log,
// creating that log on first use. They never throw: when the entry cannot
// be written, it goes to the debugger output instead
// ("ERROR: <summary> <description>"), so that logging never becomes a
// second failure.
//
//   logInfo(u"Backup started.");
//   logWarning("low disk space");
//   catch (std::exception const& e) { logError(e, u"Backup failed.", u"job 12"); }
//   logLastSysError(u"Cannot open the volume.", LogLevelError);
//
// The two-argument logError(error, summary) of qo/core/ErrorLog.h stays the
// library's own report of caught failures; once the global log exists (or a
// creation function is set) those reports land in the log as well.
//
// Thread-safe.
#ifndef QO_LOG_LOGFUNCTIONS_H
#define QO_LOG_LOGFUNCTIONS_H

#include <exception>

#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/log/CXMLElement.h"
#include "qo/log/LogLevel.h"

namespace qo {

/// An "ERROR" entry with text. Never throws. Thread-safe.
QO_API void logError(String const& text) noexcept;
/// An "ERROR" entry with text (UTF-8, bad bytes as Latin-1; null as "").
/// Never throws. Thread-safe.
QO_API void logError(char const* text) noexcept;
/// An "ERROR" complex entry of element. Never throws. Thread-safe.
QO_API void logError(CXMLElement const& element, String const& summary, String const& context) noexcept;
/// An "ERROR" complex entry describing exception. Never throws. Thread-safe.
QO_API void logError(std::exception const& exception, String const& summary, String const& context) noexcept;

/// As logError, level "WARNING". Never throw. Thread-safe.
QO_API void logWarning(String const& text) noexcept;
QO_API void logWarning(char const* text) noexcept;
QO_API void logWarning(CXMLElement const& element, String const& summary, String const& context) noexcept;
QO_API void logWarning(std::exception const& exception, String const& summary, String const& context) noexcept;

/// As logError, level "info". Never throw. Thread-safe.
QO_API void logInfo(String const& text) noexcept;
QO_API void logInfo(CXMLElement const& element, String const& summary, String const& context) noexcept;

/// A complex entry of level describing exception. Never throws.
/// Thread-safe.
QO_API void logException(LogLevel level, std::exception const& exception, String const& summary,
                         String const& context) noexcept;
/// A complex entry of level holding the log document at path (see
/// CXMLLog::logLogFileContents). Never throws. Thread-safe.
QO_API void logLogFileContents(LogLevel level, String const& path, String const& summary,
                               String const& context) noexcept;

/// An "ERROR" complex entry for the system error code (of this OS: errno
/// on POSIX, GetLastError on Windows): an error of domain "POSIX" or "WIN32"
/// with that code and the OS's text as its message. Never throws.
/// Thread-safe.
QO_API void logSysError(int code, String const& summary) noexcept;
/// logSysError for the calling thread's last system error, at level (a
/// LogLevel value). Never throws. Thread-safe.
QO_API void logLastSysError(String const& summary, int level = LogLevelError) noexcept;

namespace detail {

/// Marks the calling thread as busy with the global log for its life, so
/// that a report made meanwhile on this thread (by code the log itself runs)
/// goes to the debugger output instead of back into the log. Library
/// internal.
class CGlobalLogReentryGuard {
public:
  CGlobalLogReentryGuard() noexcept;
  ~CGlobalLogReentryGuard();
  CGlobalLogReentryGuard(CGlobalLogReentryGuard const&) = delete;
  CGlobalLogReentryGuard& operator=(CGlobalLogReentryGuard const&) = delete;
  /// True when the thread was busy with the log already.
  bool isNested() const noexcept { return m_nested; }

private:
  bool m_nested;
};

/// Routes qo/core/ErrorLog.h reports to the global log; idempotent.
/// Library internal.
void installGlobalLogHook() noexcept;
/// Restores the hook that was there before, if ours is installed. Library
/// internal.
void removeGlobalLogHook() noexcept;

}  // namespace detail

}  // namespace qo

#endif  // QO_LOG_LOGFUNCTIONS_H

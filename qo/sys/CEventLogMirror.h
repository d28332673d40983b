// qo/sys/CEventLogMirror.h - copies the session log's errors (and, when
// asked, its warnings) into the system's event log.
//
// An entry listener of CXMLLog: an administrator who never opens the
// application's log still finds its failures where the system keeps them
// (the Windows event log, syslog on Linux; see CEventLog). "FATAL ERROR"
// and "ERROR" entries become error events, "WARNING" entries warning
// events when includeWarnings is set; info and debug entries stay in the
// log. The event's text is built from the entry (formatEntry):
//   plain entry             its text
//   complex entry           summary, " [" context "]" when there is one,
//                           then ": " and the error's message when the
//                           element is an "error" (each cause's message
//                           follows after "; caused by: ")
// A failing event log never disturbs the log: the failure is counted and
// kept (getFailureCount, getLastFailure).
//
//   P<CEventLogMirror> mirror = newP<CEventLogMirror>(newP<CEventLog>(u"AcmeBackup"), false);
//   CXMLLog::getGlobal()->addEntryListener(mirror.get());
//
// Thread-safe.
#ifndef QO_SYS_CEVENTLOGMIRROR_H
#define QO_SYS_CEVENTLOGMIRROR_H

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/log/CXMLLog.h"
#include "qo/sys/CEventLog.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Mirrors log entries to a CEventLog. Thread-safe.
class QO_API CEventLogMirror : public CBase, public CXMLLog::IEntryListener {
public:
  /// Writes to eventLog (shared). Throws CInvalidArgError (place
  /// "CEventLogMirror::CEventLogMirror") for null.
  explicit CEventLogMirror(P<CEventLog> const& eventLog, bool includeWarnings = false);
  ~CEventLogMirror() override;
  CEventLogMirror(CEventLogMirror const&) = delete;
  CEventLogMirror& operator=(CEventLogMirror const&) = delete;

  /// Writes the event for an error (or warning) entry; never throws.
  void onLogEntry(LogLevel level, String const& text, CXMLElement const* element, String const& context) override;

  /// The events written. Thread-safe.
  long long getMirroredCount() const;
  /// The events the event log refused. Thread-safe.
  long long getFailureCount() const;
  /// The newest refusal, or null. Thread-safe.
  PC<CError> getLastFailure() const;

  /// The event text for an entry (see the top). Thread-safe.
  static String formatEntry(String const& text, CXMLElement const* element, String const& context);

private:
  P<CEventLog> m_eventLog;
  bool const m_includeWarnings;
  mutable CMutex m_mutex;
  long long m_mirrored = 0;
  long long m_failures = 0;
  P<CError> m_lastFailure;
};

}  // namespace qo

#endif  // QO_SYS_CEVENTLOGMIRROR_H

// qo/sys/CEventLog.h - application events for the system's own log.
//
// Information, warnings and errors that an administrator should find where
// the system keeps such things: the Windows event log (the "Application"
// log, under the given event source; RegisterEventSourceW/ReportEventW) or
// syslog on Linux (facility user, the source as ident, the process id in
// brackets, sent to the local log socket as syslog(3) does). A source that
// cannot be opened, or a log service that is not there, throws
// CSystemError; the event text is sent as it is. On Windows the event has id
// 0 and the text as its one insertion string: a source without a registered
// message file shows it behind the Event Viewer's "description cannot be
// found" note, which is what an installer's message file would replace.
//
//   P<CEventLog> log = newP<CEventLog>(u"AcmeBackup");
//   log->write(CEventLog::Warning, u"The backup target is almost full.");
//
// Thread-safe.
#ifndef QO_SYS_CEVENTLOG_H
#define QO_SYS_CEVENTLOG_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/thread/CMutex.h"

namespace qo {

namespace platform {
struct NativeEventLog;
}  // namespace platform

/// One open event source. Thread-safe.
class QO_API CEventLog : public CBase {
public:
  /// How serious an event is.
  enum Type { Information, Warning, Error };

  /// Opens the event source named source. target: Linux the log socket's
  /// path ("" = "/dev/log", the system's), Windows the server ("" = this
  /// machine). Throws CSystemError (api "RegisterEventSourceW"; POSIX: "socket" or "connect") when it
  /// cannot be opened, CInvalidArgError for an empty source.
  explicit CEventLog(String const& source, String const& target = String());
  /// Closes the source; never throws.
  ~CEventLog() override;
  CEventLog(CEventLog const&) = delete;
  CEventLog& operator=(CEventLog const&) = delete;

  /// Writes one event. Throws CSystemError (api "ReportEventW"; POSIX: "send") when the
  /// log refuses it. Thread-safe.
  void write(Type type, String const& message);
  /// The source name as given. Thread-safe.
  String const& getSource() const noexcept { return m_source; }

private:
  String m_source;
  CMutex m_mutex;
  platform::NativeEventLog* m_handle = nullptr;
};

}  // namespace qo

#endif  // QO_SYS_CEVENTLOG_H

// qo/platform/EventLog.h - the system's log of application events
// (internal, OS-free).
//
// Windows: RegisterEventSourceW, ReportEventW (the message as the event's
// one string; event id 0, category 0), DeregisterEventSource. POSIX: the
// syslog protocol as syslog(3) speaks it, over a datagram socket to the
// local log service ("/dev/log", or a socket path that the caller names):
// "<PRI>Mmm dd hh:mm:ss ident[pid]: message" with facility user. Unlike
// syslog(3) this reports a log service that is not there, and it does not
// touch the process-wide openlog() state.
//
//   EventLogHandle log = nullptr;
//   if (!eventLogOpen(u"MyApp", u"", log)) eventLogWrite(log, EventType::Warning, u"Disk almost full");
//   eventLogClose(log);
//
// Never throws. A handle is used by one thread at a time.
#ifndef QO_PLATFORM_EVENTLOG_H
#define QO_PLATFORM_EVENTLOG_H

#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeEventLog;
/// Opaque owner of an open event source; null when none.
using EventLogHandle = NativeEventLog*;

enum class EventType { Information, Warning, Error };

/// Opens the event source named source. target: POSIX the log socket's path
/// ("" = "/dev/log"); Windows the server (""= this machine).
SysError eventLogOpen(std::u16string const& source, std::u16string const& target, EventLogHandle& handle);
/// Writes one event.
SysError eventLogWrite(EventLogHandle handle, EventType type, std::u16string const& message);
/// Closes; null does nothing.
void eventLogClose(EventLogHandle handle);

}  // namespace qo::platform

#endif  // QO_PLATFORM_EVENTLOG_H

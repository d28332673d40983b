// examples/qo-backup-showlog.h - "qo-backup --show-log": the session log as
// a list a person can read.
//
// The log file and its "-suffix" companion together are one XML document
// (CXMLLog::readLogRaw). Each session becomes a heading with its start time
// and the program and system of its header, each entry one line (time,
// level, text; for a complex entry the summary, context and the error
// chain), and a session that ended without closing the log is flagged.
#ifndef QO_EXAMPLES_QO_BACKUP_SHOWLOG_H
#define QO_EXAMPLES_QO_BACKUP_SHOWLOG_H

#include <string>

#include "qo/core/String.h"

namespace qobackup {

/// The readable form of a session-log document (UTF-8 lines). Throws
/// qo::CParseError when the text is not a well-formed log document.
std::string formatLog(qo::String const& document);

/// Prints the log at path (native) to standard output; 0 on success, 1 when
/// it cannot be read or understood (the reason goes to standard error).
int showLog(qo::String const& path);

}  // namespace qobackup

#endif  // QO_EXAMPLES_QO_BACKUP_SHOWLOG_H

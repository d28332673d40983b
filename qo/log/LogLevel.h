// qo/log/LogLevel.h - how serious a log entry is.
//
// The value travels in the "level" attribute of the session log's entries
// as a fixed text (logLevelToString); lower values are more serious.
//
//   logLevelToString(LogLevelWarning);              // "WARNING"
//   logLevelToString(static_cast<LogLevel>(7));     // "7"
#ifndef QO_LOG_LOGLEVEL_H
#define QO_LOG_LOGLEVEL_H

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// The severity of a log entry. The numbers are stable; any other int
/// value may be passed and is logged as its number.
enum LogLevel : int {
  LogLevelFatalError = 0,  ///< "FATAL ERROR"
  LogLevelError = 1,       ///< "ERROR"
  LogLevelWarning = 2,     ///< "WARNING"
  LogLevelInfo = 3,        ///< "info"
  LogLevelDebug = 4,       ///< "debug"
};

/// The text of level as written in the log; a value outside the enumeration
/// as its decimal number. Thread-safe.
QO_API String logLevelToString(LogLevel level);

}  // namespace qo

#endif  // QO_LOG_LOGLEVEL_H

#include "qo/log/LogLevel.h"

namespace qo {

String logLevelToString(LogLevel level) {
  switch (level) {
    case LogLevelFatalError: return u"FATAL ERROR";
    case LogLevelError: return u"ERROR";
    case LogLevelWarning: return u"WARNING";
    case LogLevelInfo: return u"info";
    case LogLevelDebug: return u"debug";
  }
  return toString(static_cast<long long>(level));
}

}  // namespace qo

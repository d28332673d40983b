#include "qo/log/logFunctions.h"

#include <atomic>
#include <string>

#include "qo/core/CError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/ErrorLog.h"
#include "qo/log/CXMLLog.h"
#include "qo/platform/Debug.h"
#include "qo/platform/LastError.h"

namespace qo {

namespace {

thread_local bool t_busyWithGlobalLog = false;

std::atomic<ErrorLogHook> g_previousHook{nullptr};

// The last resort of every path: what ErrorLog.h does without a hook.
void toDebugger(String const& summary, String const& description) noexcept {
  try {
    std::string const text = "ERROR: " + summary.toUTF8Lossy() + " " + description.toUTF8Lossy() + "\n";
    platform::debugOutput(text.c_str());
  } catch (...) {
    platform::debugOutput("ERROR: (a log entry could not be written)\n");
  }
}

String describe(std::exception const& e) {
  if (auto const* error = dynamic_cast<CError const*>(&e)) return error->getDesc();
  return String::wstringFromUTF8WithLatin1Fallback(e.what() != nullptr ? e.what() : "");
}

// Runs write on the global log; on failure (or when the log is this
// thread's caller) reports summary and description to the debugger output.
template <class Write>
void forward(String const& summary, String const& description, Write&& write) noexcept {
  try {
    detail::CGlobalLogReentryGuard guard;
    if (!guard.isNested()) {
      P<CXMLLog> log = CXMLLog::getGlobal();
      if (log->isWritable()) {
        write(*log);
        return;
      }
    }
  } catch (std::exception const& e) {
    try {
      toDebugger(summary, description + u" (not logged: " + describe(e) + u")");
      return;
    } catch (...) {
    }
  } catch (...) {
  }
  toDebugger(summary, description);
}

void forwardToGlobalLog(CError const& error, String const& summary) {
  forward(summary, error.getDesc(), [&](CXMLLog& log) { log.logError(error, summary, String()); });
}

String elementText(CXMLElement const& element) {
  return element.getText().isEmpty() ? element.getName() : element.getName() + u": " + element.getText();
}

CError sysError(int code) {
  auto const text = platform::sysErrorText(static_cast<std::uint32_t>(code));
  return CError(String::wstringFromUTF8WithLatin1Fallback(text), CSystemError::getPlatformDomain(), code);
}

}  // namespace

namespace detail {

CGlobalLogReentryGuard::CGlobalLogReentryGuard() noexcept : m_nested(t_busyWithGlobalLog) {
  t_busyWithGlobalLog = true;
}

CGlobalLogReentryGuard::~CGlobalLogReentryGuard() { t_busyWithGlobalLog = m_nested; }

void installGlobalLogHook() noexcept {
  ErrorLogHook const previous = setErrorLogHook(&forwardToGlobalLog);
  if (previous != &forwardToGlobalLog) g_previousHook.store(previous);
}

void removeGlobalLogHook() noexcept {
  if (getErrorLogHook() == &forwardToGlobalLog) setErrorLogHook(g_previousHook.exchange(nullptr));
}

}  // namespace detail

void logError(String const& text) noexcept {
  forward(text, String(), [&](CXMLLog& log) { log.logError(text); });
}
void logError(char const* text) noexcept {
  try {
    logError(String(text));
  } catch (...) {
    platform::debugOutput("ERROR: (a log entry could not be written)\n");
  }
}
void logError(CXMLElement const& element, String const& summary, String const& context) noexcept {
  forward(summary, elementText(element), [&](CXMLLog& log) { log.logError(element, summary, context); });
}
void logError(std::exception const& exception, String const& summary, String const& context) noexcept {
  forward(summary, describe(exception), [&](CXMLLog& log) { log.logError(exception, summary, context); });
}

void logWarning(String const& text) noexcept {
  forward(text, String(), [&](CXMLLog& log) { log.logWarning(text); });
}
void logWarning(char const* text) noexcept {
  try {
    logWarning(String(text));
  } catch (...) {
    platform::debugOutput("ERROR: (a log entry could not be written)\n");
  }
}
void logWarning(CXMLElement const& element, String const& summary, String const& context) noexcept {
  forward(summary, elementText(element), [&](CXMLLog& log) { log.logWarning(element, summary, context); });
}
void logWarning(std::exception const& exception, String const& summary, String const& context) noexcept {
  forward(summary, describe(exception), [&](CXMLLog& log) { log.logWarning(exception, summary, context); });
}

void logInfo(String const& text) noexcept {
  forward(text, String(), [&](CXMLLog& log) { log.logInfo(text); });
}
void logInfo(CXMLElement const& element, String const& summary, String const& context) noexcept {
  forward(summary, elementText(element), [&](CXMLLog& log) { log.logInfo(element, summary, context); });
}

void logException(LogLevel level, std::exception const& exception, String const& summary,
                  String const& context) noexcept {
  forward(summary, describe(exception),
          [&](CXMLLog& log) { log.logException(level, exception, summary, context); });
}

void logLogFileContents(LogLevel level, String const& path, String const& summary, String const& context) noexcept {
  forward(summary, path, [&](CXMLLog& log) { log.logLogFileContents(level, path, summary, context); });
}

void logSysError(int code, String const& summary) noexcept {
  try {
    CError const error = sysError(code);
    logException(LogLevelError, error, summary, String());
  } catch (...) {
    platform::debugOutput("ERROR: (a log entry could not be written)\n");
  }
}

void logLastSysError(String const& summary, int level) noexcept {
  int const code = static_cast<int>(platform::getLastSysError());
  try {
    CError const error = sysError(code);
    logException(static_cast<LogLevel>(level), error, summary, String());
  } catch (...) {
    platform::debugOutput("ERROR: (a log entry could not be written)\n");
  }
}

}  // namespace qo

#include "qo/sys/CEventLogMirror.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

CEventLogMirror::CEventLogMirror(P<CEventLog> const& eventLog, bool includeWarnings)
    : m_eventLog(eventLog), m_includeWarnings(includeWarnings) {
  if (!m_eventLog) throw CInvalidArgError(u"CEventLogMirror::CEventLogMirror", u"the event log is null");
}

CEventLogMirror::~CEventLogMirror() = default;

void CEventLogMirror::onLogEntry(LogLevel level, String const& text, CXMLElement const* element,
                                 String const& context) {
  CEventLog::Type type;
  if (level == LogLevelFatalError || level == LogLevelError)
    type = CEventLog::Error;
  else if (level == LogLevelWarning && m_includeWarnings)
    type = CEventLog::Warning;
  else
    return;
  try {
    m_eventLog->write(type, formatEntry(text, element, context));
    CMutexLock lock(m_mutex);
    ++m_mirrored;
  } catch (CError const& e) {
    CMutexLock lock(m_mutex);
    ++m_failures;
    m_lastFailure = e.clone();
  } catch (...) {
    CMutexLock lock(m_mutex);
    ++m_failures;
  }
}

long long CEventLogMirror::getMirroredCount() const {
  CMutexLock lock(m_mutex);
  return m_mirrored;
}

long long CEventLogMirror::getFailureCount() const {
  CMutexLock lock(m_mutex);
  return m_failures;
}

PC<CError> CEventLogMirror::getLastFailure() const {
  CMutexLock lock(m_mutex);
  return m_lastFailure;
}

String CEventLogMirror::formatEntry(String const& text, CXMLElement const* element, String const& context) {
  String out = text;
  if (!context.isEmpty()) out += (out.isEmpty() ? u"[" : u" [") + context + u"]";
  if (!element) return out;
  // An "error" element (CLogErrorXMLElement): its message, then the chain
  // of causes, each under "cause".
  String messages;
  for (CXMLElement const* error = element; error && error->getName() == u"error";) {
    PC<CXMLElement> message = error->findFirstSubElement(u"message");
    if (message && !message->getText().isEmpty()) {
      if (!messages.isEmpty()) messages += u"; caused by: ";
      messages += message->getText();
    }
    PC<CXMLElement> cause = error->findFirstSubElement(u"cause");
    error = cause ? cause->findFirstSubElement(u"error").get() : nullptr;
  }
  if (!messages.isEmpty()) out += (out.isEmpty() ? String() : String(u": ")) + messages;
  return out;
}

}  // namespace qo

#include "qo/sys/CEventLog.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/EventLog.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

CEventLog::CEventLog(String const& source, String const& target) : m_source(source) {
  if (source.isEmpty()) throw CInvalidArgError(u"CEventLog::CEventLog", u"the source name is empty");
  if (platform::SysError e = platform::eventLogOpen(source.str(), target.str(), m_handle))
    throw CSystemError(u"Error opening the system event log.", u"CEventLog::CEventLog", u"RegisterEventSourceW", e,
                       CProps().add(u"source", source).addCond(!target.isEmpty(), u"target", target));
}

CEventLog::~CEventLog() { platform::eventLogClose(m_handle); }

void CEventLog::write(Type type, String const& message) {
  platform::EventType native = type == Error     ? platform::EventType::Error
                               : type == Warning ? platform::EventType::Warning
                                                 : platform::EventType::Information;
  CMutexLock lock(m_mutex);
  if (platform::SysError e = platform::eventLogWrite(m_handle, native, message.str()))
    throw CSystemError(u"Error writing to the system event log.", u"CEventLog::write", u"ReportEventW", e, CProps().add(u"source", m_source));
}

}  // namespace qo

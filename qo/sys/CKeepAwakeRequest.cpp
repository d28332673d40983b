#include "qo/sys/CKeepAwakeRequest.h"

#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/Power.h"

namespace qo {

CKeepAwakeRequest::CKeepAwakeRequest(String const& who, String const& why) {
  if (who.isEmpty()) throw CInvalidArgError(u"CKeepAwakeRequest::CKeepAwakeRequest", u"who is empty");
  bool unavailable = false;
  std::string detail;
  platform::SysError e = platform::keepAwakeBegin(who.str(), why.str(), m_handle, unavailable, detail);
  if (unavailable) {
    CNotImplementedError error(u"CKeepAwakeRequest::CKeepAwakeRequest");
    error.getParams().add(u"reason", u"Keeping the system awake is not available here: " +
                                         String::wstringFromUTF8WithLatin1Fallback(detail));
    throw error;
  }
  if (e) throw CSystemError(u"Error keeping the system awake.", u"CKeepAwakeRequest::CKeepAwakeRequest",
                            u"SetThreadExecutionState", e);
}

CKeepAwakeRequest::~CKeepAwakeRequest() { platform::keepAwakeEnd(m_handle); }

}  // namespace qo

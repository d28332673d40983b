// qo/log/CLogErrorXMLElement.h - an exception as an XML element for the
// session log.
//
// The element is named "error":
//   <error class="qo::CIOError" code="3" domain="IO">
//     <cause>
//       <error class="qo::CSystemError" code="28" domain="POSIX">...</error>
//     </cause>
//     <message>Error writing data.</message>
//     <properties action="write" uri="file:///tmp/a"></properties>
//   </error>
// "class" is the exception's run-time type name. A CError adds "domain" and
// "code" and, when it has a cause, the child "cause" holding the cause
// rendered the same way. "message" holds the CError's message (a plain
// exception's what() text, read as UTF-8 with Latin-1 fallback);
// "properties" has the error's properties as attributes (none for a plain
// exception).
//
//   catch (std::exception const& e) { log->writeComplexEntry(LogLevelError, CLogErrorXMLElement(e), u"Backup failed.", u""); }
//
// Not thread-safe.
#ifndef QO_LOG_CLOGERRORXMLELEMENT_H
#define QO_LOG_CLOGERRORXMLELEMENT_H

#include <exception>

#include "qo/core/Export.h"
#include "qo/log/CXMLElement.h"

namespace qo {

/// The "error" element of an exception. Not thread-safe.
class QO_API CLogErrorXMLElement : public CXMLElement {
public:
  /// Renders exception as described at the top. Throws only
  /// std::bad_alloc.
  explicit CLogErrorXMLElement(std::exception const& exception);
  CLogErrorXMLElement(CLogErrorXMLElement const& other);
  ~CLogErrorXMLElement() override;
};

}  // namespace qo

#endif  // QO_LOG_CLOGERRORXMLELEMENT_H

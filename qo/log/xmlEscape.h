// qo/log/xmlEscape.h - text made safe for XML character data and attribute
// values.
//
// The five characters with a meaning in XML become entity references, each
// other character stays as it is (the writers encode the result as UTF-8):
//   xmlEscape(u"a<b & \"c\"")   // "a&lt;b &amp; &quot;c&quot;"
// The ampersand goes first, so the entities written for the others are not
// escaped a second time.
#ifndef QO_LOG_XMLESCAPE_H
#define QO_LOG_XMLESCAPE_H

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// text with "&" as "&amp;", "<" as "&lt;", ">" as "&gt;", "\"" as "&quot;"
/// and "'" as "&apos;". Throws only std::bad_alloc. Thread-safe.
QO_API String xmlEscape(String const& text);

}  // namespace qo

#endif  // QO_LOG_XMLESCAPE_H

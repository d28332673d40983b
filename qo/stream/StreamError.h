// qo/stream/StreamError.h - how the library's streams build their CIOErrors.
//
// One shape for all of them: the kind, a message (empty: the kind's default
// text), the properties, the stream's URI under "uri" (only when the URI is
// not empty) and the function that raised it as the first entry of the
// error's trace list ("_trace"), so that a logged error names its origin:
//   throw makeStreamError(CIOError::kSeekFailed, "CConcatInStream::seek", String(),
//                         CProps().addLong(u"pos", p), getURI());
#ifndef QO_STREAM_STREAMERROR_H
#define QO_STREAM_STREAMERROR_H

#include "qo/core/CIOError.h"
#include "qo/core/CProps.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"

namespace qo {

/// A CIOError as described above; location may be null or empty (no trace
/// entry). Thread-safe.
QO_API CIOError makeStreamError(long long kind, char const* location, String const& message, CProps props,
                                CURI const& uri);
/// props with the URI added under "uri" when the URI is not empty.
/// Thread-safe.
QO_API CProps withStreamURI(CProps props, CURI const& uri);

}  // namespace qo

#endif  // QO_STREAM_STREAMERROR_H

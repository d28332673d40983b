// qo/stream/CDummyInStream.h - the empty input stream.
//
// Length 0, every read delivers nothing (read() of one byte or more throws
// CIOError kind 4), the URI is empty. Behaves as a CZeroInStream of length 0
// otherwise (locks refused, closed state).
//
//   P<IInStream> nothing = newP<CDummyInStream>();
//
// Not thread-safe.
#ifndef QO_STREAM_CDUMMYINSTREAM_H
#define QO_STREAM_CDUMMYINSTREAM_H

#include "qo/core/Export.h"
#include "qo/stream/CZeroInStream.h"

namespace qo {

/// An input stream without bytes. Not thread-safe.
class QO_API CDummyInStream : public CZeroInStream {
public:
  CDummyInStream();
  ~CDummyInStream() override;
};

}  // namespace qo

#endif  // QO_STREAM_CDUMMYINSTREAM_H

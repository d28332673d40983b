// qo/stream/IAlignedIOStream.h - an input and output stream with the
// alignment contract of IAlignedStreamBase.
//
// No operations of its own; it joins IIOStream with both aligned sides
// (virtually, so the object keeps one IStreamBase and one IBase).
#ifndef QO_STREAM_IALIGNEDIOSTREAM_H
#define QO_STREAM_IALIGNEDIOSTREAM_H

#include "qo/core/Export.h"
#include "qo/stream/IAlignedInStream.h"
#include "qo/stream/IAlignedOutStream.h"
#include "qo/stream/IIOStream.h"

namespace qo {

/// An aligned input and output stream. Not thread-safe.
class QO_API IAlignedIOStream : public virtual IIOStream,
                                public virtual IAlignedInStream,
                                public virtual IAlignedOutStream {
public:
  ~IAlignedIOStream() override;
};

}  // namespace qo

#endif  // QO_STREAM_IALIGNEDIOSTREAM_H

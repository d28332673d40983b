// qo/stream/IAlignedOutStream.h - an output stream with the alignment contract
// of IAlignedStreamBase.
//
// No operations of its own; it joins the two interfaces (virtually, so the
// object keeps one IStreamBase and one IBase).
#ifndef QO_STREAM_IALIGNEDOUTSTREAM_H
#define QO_STREAM_IALIGNEDOUTSTREAM_H

#include "qo/core/Export.h"
#include "qo/stream/IAlignedStreamBase.h"
#include "qo/stream/IOutStream.h"

namespace qo {

/// An aligned output stream. Not thread-safe.
class QO_API IAlignedOutStream : public virtual IOutStream, public virtual IAlignedStreamBase {
public:
  ~IAlignedOutStream() override;
};

}  // namespace qo

#endif  // QO_STREAM_IALIGNEDOUTSTREAM_H

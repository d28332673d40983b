// qo/stream/IAlignedInStream.h - an input stream with the alignment contract
// of IAlignedStreamBase.
//
// No operations of its own; it joins the two interfaces (virtually, so the
// object keeps one IStreamBase and one IBase).
#ifndef QO_STREAM_IALIGNEDINSTREAM_H
#define QO_STREAM_IALIGNEDINSTREAM_H

#include "qo/core/Export.h"
#include "qo/stream/IAlignedStreamBase.h"
#include "qo/stream/IInStream.h"

namespace qo {

/// An aligned input stream. Not thread-safe.
class QO_API IAlignedInStream : public virtual IInStream, public virtual IAlignedStreamBase {
public:
  ~IAlignedInStream() override;
};

}  // namespace qo

#endif  // QO_STREAM_IALIGNEDINSTREAM_H

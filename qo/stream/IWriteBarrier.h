// qo/stream/IWriteBarrier.h - an ordering token for writes to one stream.
//
// IOutStream::createWriteBarrier makes one; later writes that name it belong
// to it. A stream compares barriers only by identity, and a barrier must be
// passed only to the stream that made it. Streams whose writes are complete
// when write() returns hand out a CDummyWriteBarrier.
#ifndef QO_STREAM_IWRITEBARRIER_H
#define QO_STREAM_IWRITEBARRIER_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// A write-ordering token without operations. Thread-safe (its reference
/// count).
class QO_API IWriteBarrier : public virtual IBase {
public:
  ~IWriteBarrier() override;
};

}  // namespace qo

#endif  // QO_STREAM_IWRITEBARRIER_H

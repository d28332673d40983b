// qo/stream/CDummyWriteBarrier.h - the write barrier that orders nothing.
//
// Streams whose writes are complete when write() returns answer
// createWriteBarrier with a new CDummyWriteBarrier (after their own flush()
// where they buffer):
//   P<IWriteBarrier> CMyStream::createWriteBarrier(IWriteBarrier*) {
//     flush();
//     return newP<CDummyWriteBarrier>();
//   }
#ifndef QO_STREAM_CDUMMYWRITEBARRIER_H
#define QO_STREAM_CDUMMYWRITEBARRIER_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/stream/IWriteBarrier.h"

namespace qo {

/// A do-nothing write barrier. Thread-safe.
class QO_API CDummyWriteBarrier : public CBase, public IWriteBarrier {
public:
  CDummyWriteBarrier() = default;
  ~CDummyWriteBarrier() override;
};

}  // namespace qo

#endif  // QO_STREAM_CDUMMYWRITEBARRIER_H

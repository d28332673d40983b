// qo/stream/IStreamLock.h - the token of a locked byte range of a stream.
//
// A lock has no operations: its lifetime is the lock. IStreamBase::lockRange
// returns one; the range stays locked until the last P to it is dropped,
// which unlocks it.
//
//   P<IStreamLock> lock = stream->lockRange(0, 4096, IStreamBase::LockExclusive);
//   ...                      // the range is ours
//   lock = nil;              // unlocked
#ifndef QO_STREAM_ISTREAMLOCK_H
#define QO_STREAM_ISTREAMLOCK_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// A held range lock; releasing the last reference unlocks the range.
/// Thread-safe (its reference count).
class QO_API IStreamLock : public virtual IBase {
public:
  ~IStreamLock() override;
};

}  // namespace qo

#endif  // QO_STREAM_ISTREAMLOCK_H

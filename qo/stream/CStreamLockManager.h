// qo/stream/CStreamLockManager.h - the range-lock bookkeeping of one stream.
//
// A stream that can lock byte ranges keeps one CStreamLockManager. It stores
// disjoint ranges, each with the number of shared and of exclusive holders of
// exactly that range; a request that overlaps stored ranges splits them at
// its boundaries, so holders are always counted per whole stored range.
// - lockRange refuses (map unchanged) when it touches a range with an
//   exclusive holder, or, for an exclusive request, any held range; it
//   reports the sub-ranges nobody held before, which the stream must now
//   lock at its device.
// - unlockRange drops one hold over stored ranges that lie wholly inside the
//   request and reports those whose last hold went, which the stream must
//   now unlock at its device.
// Stored ranges are never merged again, so an unlock always matches the
// ranges its lock created.
//
//   TList<CRangeKey> fresh;
//   m_locks.lockRange(0, 100, IStreamBase::LockShared, fresh);    // fresh: [0,100)
//   m_locks.lockRange(50, 100, IStreamBase::LockShared, fresh);   // adds [100,150)
//   for (CRangeKey const& r : fresh) lockAtDevice(r);
//
// Thread-safe: one mutex guards every operation.
#ifndef QO_STREAM_CSTREAMLOCKMANAGER_H
#define QO_STREAM_CSTREAMLOCKMANAGER_H

#include <map>
#include <utility>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/TArray.h"
#include "qo/core/TList.h"
#include "qo/stream/CRangeKey.h"
#include "qo/stream/IStreamBase.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Counted range locks of one stream. Thread-safe.
class QO_API CStreamLockManager : public CBase {
public:
  /// The holders of one stored range.
  struct LockRecord {
    int sharedCount = 0;
    int exclusiveCount = 0;
    friend bool operator==(LockRecord const& a, LockRecord const& b) noexcept {
      return a.sharedCount == b.sharedCount && a.exclusiveCount == b.exclusiveCount;
    }
    friend bool operator!=(LockRecord const& a, LockRecord const& b) noexcept { return !(a == b); }
  };
  /// A stored range and its holders.
  using Entry = std::pair<CRangeKey, LockRecord>;

  CStreamLockManager();
  ~CStreamLockManager() override;
  CStreamLockManager(CStreamLockManager const&) = delete;
  CStreamLockManager& operator=(CStreamLockManager const&) = delete;

  /// Records one hold of type over [start, start + length) and appends to
  /// newlyLocked, in ascending order, the sub-ranges that no hold covered
  /// before. A length below 1 records nothing. Throws CFileSystemError
  /// (problem 5, the cause a CError naming the conflict) when the range
  /// touches an exclusively held range or, for an exclusive request, any
  /// held range; CInvalidArgError for a negative start or an end beyond the
  /// 64-bit range. On a throw nothing is recorded. Thread-safe.
  void lockRange(long long start, long long length, IStreamBase::LockType type, TList<CRangeKey>& newlyLocked);
  /// Drops one hold of type from every stored range inside [start,
  /// start + length) and appends to nowUnlocked, in ascending order, the
  /// ranges that no hold covers any more. A length below 1 does nothing.
  /// Throws CError ("Internal Error: ...") when part of the range is not
  /// held with that type, or when a stored range only partly overlaps it;
  /// nothing changes then. Thread-safe.
  void unlockRange(long long start, long long length, IStreamBase::LockType type, TList<CRangeKey>& nowUnlocked);
  /// True while any range is held. Thread-safe.
  bool hasAnyLocks() const;
  /// A snapshot of the stored ranges in ascending order, for tests and
  /// diagnostics. Thread-safe.
  TArray<Entry> getLockedRanges() const;

private:
  using Map = std::map<CRangeKey, LockRecord>;

  mutable CMutex m_mutex;
  Map m_ranges;
};

}  // namespace qo

#endif  // QO_STREAM_CSTREAMLOCKMANAGER_H

#include "qo/stream/CStreamLockManager.h"

#include "qo/core/CError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/thread/CMutexLock.h"

#include <limits>

namespace qo {

namespace {

[[noreturn]] void throwConflict(char16_t const* message) {
  CError const cause(message);
  throw CFileSystemError(CFileSystemError::kLockConflict, &cause);
}

[[noreturn]] void throwInternal(char16_t const* message) { throw CError(message); }

void checkRange(long long start, long long length, char const* place) {
  if (start < 0 || length > std::numeric_limits<long long>::max() - start) {
    throw CInvalidArgError(String(place), u"the range lies outside 0 to 2^63 - 1",
                           CProps().addLong(u"start", start).addLong(u"length", length));
  }
}

}  // namespace

CStreamLockManager::CStreamLockManager() = default;
CStreamLockManager::~CStreamLockManager() = default;

void CStreamLockManager::lockRange(long long start, long long length, IStreamBase::LockType type,
                                   TList<CRangeKey>& newlyLocked) {
  if (length < 1) return;
  checkRange(start, length, "CStreamLockManager::lockRange");
  CRangeKey const request(start, length);
  long long const end = request.getEnd();
  bool const exclusive = type == IStreamBase::LockExclusive;

  CMutexLock lock(m_mutex);
  Map::iterator const first = m_ranges.lower_bound(request);
  Map::iterator last = first;
  for (; last != m_ranges.end() && last->first.getStart() < end; ++last) {
    if (last->second.exclusiveCount > 0) {
      throwConflict(u"Cannot lock this stream range - it already contains an exclusive lock.");
    }
    if (exclusive) throwConflict(u"Cannot obtain exclusive lock on this stream range - shared locks already exist.");
  }

  // Stored ranges wholly inside the request only gain a hold. New nodes (the
  // gaps, and the pieces of the at most two stored ranges that straddle the
  // request's ends) are built aside first, so that an allocation failure
  // leaves the map as it was; merge() then only relinks nodes.
  LockRecord fresh;
  (exclusive ? fresh.exclusiveCount : fresh.sharedCount) = 1;
  Map pieces;
  TList<CRangeKey> gaps;
  Map::iterator straddling[2] = {m_ranges.end(), m_ranges.end()};
  int straddlingCount = 0;
  long long pos = start;
  for (Map::iterator it = first; it != last; ++it) {
    CRangeKey const& stored = it->first;
    CRangeKey const overlap = stored.getOverlap(request);
    if (overlap.getLength() <= 0) {
      throwInternal(u"Internal Error: CStreamLockManager::lockRange found an existing range, but overlap is empty.");
    }
    if (overlap.getStart() > pos) {
      CRangeKey const gap(pos, overlap.getStart() - pos);
      pieces.emplace(gap, fresh);
      gaps.push_back(gap);
    }
    if (stored.getStart() < overlap.getStart() || stored.getEnd() > overlap.getEnd()) {
      if (stored.getStart() < overlap.getStart()) {
        pieces.emplace(CRangeKey(stored.getStart(), overlap.getStart() - stored.getStart()), it->second);
      }
      LockRecord held = it->second;
      ++(exclusive ? held.exclusiveCount : held.sharedCount);
      pieces.emplace(overlap, held);
      if (stored.getEnd() > overlap.getEnd()) {
        pieces.emplace(CRangeKey(overlap.getEnd(), stored.getEnd() - overlap.getEnd()), it->second);
      }
      straddling[straddlingCount++] = it;
    }
    pos = overlap.getEnd();
  }
  if (pos < end) {
    CRangeKey const gap(pos, end - pos);
    pieces.emplace(gap, fresh);
    gaps.push_back(gap);
  }

  for (Map::iterator it = first; it != last; ++it) {
    if (it != straddling[0] && it != straddling[1]) ++(exclusive ? it->second.exclusiveCount : it->second.sharedCount);
  }
  for (int i = 0; i < straddlingCount; ++i) m_ranges.erase(straddling[i]);
  m_ranges.merge(pieces);
  newlyLocked.splice(newlyLocked.end(), gaps);
}

void CStreamLockManager::unlockRange(long long start, long long length, IStreamBase::LockType type,
                                     TList<CRangeKey>& nowUnlocked) {
  if (length < 1) return;
  checkRange(start, length, "CStreamLockManager::unlockRange");
  CRangeKey const request(start, length);
  long long const end = request.getEnd();
  bool const exclusive = type == IStreamBase::LockExclusive;
  char16_t const* const notLocked =
      u"Internal Error: CStreamLockManager::unlockRange called for a range, but that range is not locked.";

  CMutexLock lock(m_mutex);
  Map::iterator const first = m_ranges.lower_bound(request);
  Map::iterator last = first;
  TList<CRangeKey> released;
  long long pos = start;
  for (; last != m_ranges.end() && last->first.getStart() < end; ++last) {
    CRangeKey const& stored = last->first;
    if (stored.getStart() > pos) throwInternal(notLocked);
    if (stored.getStart() < start || stored.getEnd() > end) {
      throwInternal(
          u"Internal Error: CStreamLockManager::unlockRange called for a range, that does not match the previously "
          u"locked range - it only partially overlaps with it.");
    }
    LockRecord const& held = last->second;
    int const count = exclusive ? held.exclusiveCount : held.sharedCount;
    if (count < 1) throwInternal(notLocked);
    if (held.sharedCount + held.exclusiveCount == 1) released.push_back(stored);
    pos = stored.getEnd();
  }
  if (pos < end) throwInternal(notLocked);

  for (Map::iterator it = first; it != last;) {
    LockRecord& held = it->second;
    --(exclusive ? held.exclusiveCount : held.sharedCount);
    if (held.sharedCount == 0 && held.exclusiveCount == 0) {
      it = m_ranges.erase(it);
    } else {
      ++it;
    }
  }
  nowUnlocked.splice(nowUnlocked.end(), released);
}

bool CStreamLockManager::hasAnyLocks() const {
  CMutexLock lock(m_mutex);
  return !m_ranges.empty();
}

TArray<CStreamLockManager::Entry> CStreamLockManager::getLockedRanges() const {
  CMutexLock lock(m_mutex);
  return TArray<Entry>(m_ranges.begin(), m_ranges.end());
}

}  // namespace qo

// qo/stream/CRangeKey.h - a byte range [start, start + length) used as a map
// key.
//
// The comparisons are built for maps of non-overlapping ranges: two ranges
// that overlap compare *equal*, so looking a range up finds the stored range
// that touches it.
//   a <  b   a lies wholly before b (a.end <= b.start and a.start < b.start)
//   a == b   the ranges overlap, or their starts are equal
// so (0,10) == (5,10), (0,5) < (5,5), (3,0) == (3,0) but (3,0) != (4,0).
// This is not an ordering of arbitrary ranges (equality is not transitive);
// it is one for a set of disjoint non-empty ranges and a probe against them.
//
//   std::map<CRangeKey, int> m;
//   m[CRangeKey(100, 50)] = 1;
//   m.find(CRangeKey(120, 1));   // finds (100, 50)
//
// A value class. Not thread-safe (as any value).
#ifndef QO_STREAM_CRANGEKEY_H
#define QO_STREAM_CRANGEKEY_H

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// A byte range with overlap-equality comparisons. Not thread-safe.
class QO_API CRangeKey {
public:
  /// (0, 0).
  constexpr CRangeKey() noexcept = default;
  constexpr CRangeKey(long long start, long long length) noexcept : m_start(start), m_length(length) {}

  constexpr long long getStart() const noexcept { return m_start; }
  constexpr long long getLength() const noexcept { return m_length; }
  /// start + length: one past the last byte.
  constexpr long long getEnd() const noexcept { return m_start + m_length; }
  void setStart(long long start) noexcept { m_start = start; }
  void setLength(long long length) noexcept { m_length = length; }
  /// True when start and length are both 0.
  constexpr bool isZero() const noexcept { return m_start == 0 && m_length == 0; }

  /// (max of starts, min of ends - max of starts), or (0, 0) when that
  /// length is 0 or negative.
  constexpr CRangeKey getOverlap(CRangeKey const& other) const noexcept {
    long long const start = m_start > other.m_start ? m_start : other.m_start;
    long long const end = getEnd() < other.getEnd() ? getEnd() : other.getEnd();
    return end - start > 0 ? CRangeKey(start, end - start) : CRangeKey();
  }

  /// "[start, end)", for messages and test output.
  String toString() const;

  friend constexpr bool operator<(CRangeKey const& a, CRangeKey const& b) noexcept {
    return a.getEnd() <= b.m_start && a.m_start < b.m_start;
  }
  friend constexpr bool operator>(CRangeKey const& a, CRangeKey const& b) noexcept { return b < a; }
  friend constexpr bool operator==(CRangeKey const& a, CRangeKey const& b) noexcept {
    return (a.m_start < b.getEnd() && a.getEnd() > b.m_start) || a.m_start == b.m_start;
  }
  friend constexpr bool operator!=(CRangeKey const& a, CRangeKey const& b) noexcept { return !(a == b); }
  friend constexpr bool operator<=(CRangeKey const& a, CRangeKey const& b) noexcept { return a < b || a == b; }
  friend constexpr bool operator>=(CRangeKey const& a, CRangeKey const& b) noexcept { return a > b || a == b; }

private:
  long long m_start = 0;
  long long m_length = 0;
};

}  // namespace qo

#endif  // QO_STREAM_CRANGEKEY_H

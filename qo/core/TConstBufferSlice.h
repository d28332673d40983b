// qo/core/TConstBufferSlice.h - a read-only view of a range of a TBuffer.
//
// A slice holds a reference to its buffer, so the buffer lives as long as
// any slice of it; a stream may keep a slice of written data instead of
// copying it. Rules:
// - The range (start, length) is checked against the buffer's size when the
//   slice is made; out of range throws CInvalidArgError. A slice does not
//   follow later size changes of its buffer.
// - Whoever writes the buffer must leave the covered elements unchanged (and
//   not shrink the buffer below them) while slices of them are in use.
// - getData() reads the buffer's current storage each time, so it stays
//   right after the buffer has grown and moved.
//
//   P<TBuffer<unsigned char>> buf = newP<TBuffer<unsigned char>>(bytes, 100);
//   TConstBufferSlice<unsigned char> all(buf);        // 0..100
//   auto tail = all.slice(90, 10);                     // 90..100
//   out->writeKeepBuffer(tail, nullptr);
//
// A value class. Not thread-safe (as any value); the buffer's reference
// count is thread-safe.
#ifndef QO_CORE_TCONSTBUFFERSLICE_H
#define QO_CORE_TCONSTBUFFERSLICE_H

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/core/P.h"
#include "qo/core/TBuffer.h"

#include <utility>

namespace qo {

/// A read-only (start, length) view of a TBuffer, keeping it alive.
/// Not thread-safe.
template <class T>
class TConstBufferSlice {
public:
  using Buffer = TBuffer<T>;

  /// Empty, without a buffer: getData() is null, the length 0.
  TConstBufferSlice() noexcept = default;
  /// The whole buffer as it is now (start 0, its current size). A null
  /// buffer gives the empty slice.
  explicit TConstBufferSlice(PC<Buffer> buffer) noexcept
      : m_buffer(std::move(buffer)), m_length(m_buffer ? m_buffer->getSize() : 0) {}
  explicit TConstBufferSlice(P<Buffer> const& buffer) noexcept : TConstBufferSlice(PC<Buffer>(buffer)) {}
  /// length elements from start. Throws CInvalidArgError unless
  /// 0 <= start, 0 <= length and start + length <= the buffer's size (a
  /// null buffer has size 0).
  TConstBufferSlice(PC<Buffer> buffer, long long start, long long length)
      : m_buffer(std::move(buffer)), m_start(start), m_length(length) {
    check(m_buffer ? m_buffer->getSize() : 0, start, length, "TConstBufferSlice constructor");
  }
  TConstBufferSlice(P<Buffer> const& buffer, long long start, long long length)
      : TConstBufferSlice(PC<Buffer>(buffer), start, length) {}

  /// The first element of the slice; null for a slice without a buffer, and
  /// may be null for an empty slice.
  T const* getData() const noexcept { return m_buffer ? m_buffer->getData() + m_start : nullptr; }
  long long getStart() const noexcept { return m_start; }
  long long getLength() const noexcept { return m_length; }
  /// One past the last element, as an index into the buffer.
  long long getEnd() const noexcept { return m_start + m_length; }
  bool isEmpty() const noexcept { return m_length == 0; }
  /// The buffer (null for the default slice).
  PC<Buffer> const& getBuffer() const noexcept { return m_buffer; }

  /// A slice of this slice: start counts from this slice's start. Throws
  /// CInvalidArgError unless the range lies within this slice.
  TConstBufferSlice slice(long long start, long long length) const {
    check(m_length, start, length, "TConstBufferSlice::slice");
    TConstBufferSlice result;
    result.m_buffer = m_buffer;
    result.m_start = m_start + start;
    result.m_length = length;
    return result;
  }

private:
  static void check(long long available, long long start, long long length, char const* place) {
    // start > available - length: no overflow, since both are >= 0 here.
    if (start < 0 || length < 0 || start > available - length) {
      throw CInvalidArgError(String(place), u"the range lies outside the buffer",
                             CProps().addLong(u"start", start).addLong(u"length", length).addLong(u"size", available));
    }
  }

  PC<Buffer> m_buffer;
  long long m_start = 0;
  long long m_length = 0;
};

}  // namespace qo

#endif  // QO_CORE_TCONSTBUFFERSLICE_H

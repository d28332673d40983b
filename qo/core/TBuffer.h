// qo/core/TBuffer.h - a reference-counted, growable contiguous buffer.
//
// TBuffer<T> holds size elements in storage of capacity elements, for
// trivial element types (bytes, wchar_t, PODs), used as TBuffer<unsigned char>
// and TBuffer<wchar_t>. Rules:
// - Growth leaves the new elements uninitialised (no zero-fill; that is the
//   point of the class). setSizeZeroed() is the zero-filling variant.
// - setSize() and append() grow the capacity geometrically, to at least twice
//   the old one, so repeated appends cost amortised constant time; reserve()
//   grows it to exactly the requested count, for callers with their own
//   growth policy. Capacity never shrinks, except by shrinkToFit().
// - Growing moves the data: pointers from getData() are valid only until the
//   next call that may grow.
// - Sizes are signed 64-bit; a negative size, or one beyond what the address
//   space can hold, throws CInvalidArgError. Out of memory throws
//   std::bad_alloc.
// - Buffers are shared through P, never copied implicitly: copying is
//   deleted, clone() makes a deep copy.
//
//   P<TBuffer<unsigned char>> buf = newP<TBuffer<unsigned char>>();
//   buf->append(bytes, 16);
//   TConstBufferSlice<unsigned char> head(buf, 0, 4);   // keeps buf alive
//
// Not thread-safe (the contents); the reference count is thread-safe.
#ifndef QO_CORE_TBUFFER_H
#define QO_CORE_TBUFFER_H

#include <cassert>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>

#include "qo/core/CBase.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/core/P.h"

namespace qo {

/// A growable contiguous buffer of trivial elements. Not thread-safe.
template <class T>
class TBuffer : public CBase {
  static_assert(std::is_trivial_v<T>, "TBuffer holds trivial types only: it copies with memcpy and skips construction");
  static_assert(alignof(T) <= alignof(std::max_align_t), "TBuffer storage comes from malloc");

public:
  using value_type = T;

  /// The largest size and capacity, in elements.
  static constexpr long long kMaxSize =
      static_cast<long long>(std::numeric_limits<std::ptrdiff_t>::max() / static_cast<std::ptrdiff_t>(sizeof(T)));

  /// Empty, no storage.
  TBuffer() noexcept = default;
  /// size elements, uninitialised. Throws CInvalidArgError for a bad size.
  explicit TBuffer(long long size) { setSize(size); }
  /// A copy of count elements at data. Throws CInvalidArgError for a bad count.
  TBuffer(T const* data, long long count) { append(data, count); }
  TBuffer(TBuffer const&) = delete;
  TBuffer& operator=(TBuffer const&) = delete;
  ~TBuffer() override = default;

  /// A new buffer with the same elements; its capacity is its size.
  [[nodiscard]] P<TBuffer> clone() const { return newP<TBuffer>(getData(), m_size); }

  /// The elements in use.
  long long getSize() const noexcept { return m_size; }
  /// The elements that fit without reallocation.
  long long getCapacity() const noexcept { return m_capacity; }
  bool isEmpty() const noexcept { return m_size == 0; }
  /// The first element; null while the capacity is 0.
  T* getData() noexcept { return m_data.get(); }
  T const* getData() const noexcept { return m_data.get(); }
  /// Element i, unchecked (asserted): 0 <= i < getSize().
  T& operator[](long long i) noexcept {
    assert(i >= 0 && i < m_size);
    return m_data.get()[static_cast<std::size_t>(i)];
  }
  T const& operator[](long long i) const noexcept {
    assert(i >= 0 && i < m_size);
    return m_data.get()[static_cast<std::size_t>(i)];
  }

  /// Keeps the first min(size, getSize()) elements; elements beyond the old
  /// size are uninitialised. Grows geometrically. Throws CInvalidArgError
  /// for a negative size or one above kMaxSize.
  void setSize(long long size) {
    checkSize(size, "TBuffer::setSize");
    if (size > m_capacity) reallocate(grownCapacity(size));
    m_size = size;
  }
  /// setSize() for a size known to fit the capacity (asserted): no checks,
  /// no reallocation; for inline fast paths.
  void setSizeWithinCapacity(long long size) noexcept {
    assert(size >= 0 && size <= m_capacity);
    m_size = size;
  }
  /// As setSize(), but elements beyond the old size become zero.
  void setSizeZeroed(long long size) {
    long long const oldSize = m_size;
    setSize(size);
    if (size > oldSize) std::memset(m_data.get() + oldSize, 0, static_cast<std::size_t>(size - oldSize) * sizeof(T));
  }
  /// Makes the capacity at least capacity, allocating exactly that much
  /// when it grows. Throws CInvalidArgError for a negative value or one
  /// above kMaxSize.
  void reserve(long long capacity) {
    checkSize(capacity, "TBuffer::reserve");
    if (capacity > m_capacity) reallocate(capacity);
  }
  /// Drops unused capacity (reallocates when there is any).
  void shrinkToFit() {
    if (m_capacity > m_size) reallocate(m_size);
  }
  /// Size 0; the capacity stays.
  void clear() noexcept { m_size = 0; }

  /// Copies count elements from data to the end. data may point into this
  /// buffer. Throws CInvalidArgError for a negative count or when the size
  /// would pass kMaxSize.
  void append(T const* data, long long count) {
    checkSize(count, "TBuffer::append");
    if (count > kMaxSize - m_size) throwBadSize("TBuffer::append", count, u"the size would overflow");
    if (count == 0) return;
    long long const newSize = m_size + count;
    if (newSize > m_capacity) {
      // data may point into the storage, which growing moves.
      T const* const old = m_data.get();
      std::less<T const*> const before;
      bool const own = old != nullptr && !before(data, old) && before(data, old + m_capacity);
      std::ptrdiff_t const offset = own ? data - old : 0;
      reallocate(grownCapacity(newSize));
      if (own) data = m_data.get() + offset;
      std::memmove(m_data.get() + m_size, data, static_cast<std::size_t>(count) * sizeof(T));
    } else {
      // memmove: data may overlap the tail being written.
      std::memmove(m_data.get() + m_size, data, static_cast<std::size_t>(count) * sizeof(T));
    }
    m_size = newSize;
  }
  /// Appends one element.
  void append(T const& value) {
    T const copy = value;  // value may live in this buffer
    append(&copy, 1);
  }

private:
  [[noreturn]] static void throwBadSize(char const* place, long long size, char16_t const* why) {
    throw CInvalidArgError(String(place), why, CProps().addLong(u"size", size));
  }
  static void checkSize(long long size, char const* place) {
    if (size < 0) throwBadSize(place, size, u"the size is negative");
    if (size > kMaxSize) throwBadSize(place, size, u"the size is too large");
  }
  long long grownCapacity(long long needed) const noexcept {
    long long const doubled = m_capacity > kMaxSize / 2 ? kMaxSize : m_capacity * 2;
    return needed > doubled ? needed : doubled;
  }
  // Through realloc: a large block grows in place or by remapping its
  // pages (glibc), without the copy and the page faults of a fresh block.
  void reallocate(long long capacity) {
    if (capacity == 0) {
      m_data.reset();
    } else {
      // With nothing to keep, a fresh block spares realloc copying the old one.
      if (m_size == 0) m_data.reset();
      void* const fresh = std::realloc(m_data.get(), static_cast<std::size_t>(capacity) * sizeof(T));
      if (fresh == nullptr) throw std::bad_alloc();
      (void)m_data.release();
      m_data.reset(static_cast<T*>(fresh));
    }
    m_capacity = capacity;
    if (m_size > capacity) m_size = capacity;
  }
  struct FreeStorage {
    void operator()(T* data) const noexcept { std::free(data); }
  };

  std::unique_ptr<T, FreeStorage> m_data;
  long long m_size = 0;
  long long m_capacity = 0;
};

}  // namespace qo

#endif  // QO_CORE_TBUFFER_H

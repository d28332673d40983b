// qo/core/TConstOptRef.h - an optional const reference.
//
// TConstOptRef<T> either refers to a T or holds nothing, without copying the
// T: an optional argument or an optional part of an object (the host of a
// URI) is handed out as one. It borrows: the referenced object must outlive
// the TConstOptRef, as with a reference (a temporary passed as an argument
// lives until the call returns, which is enough for a parameter).
//
//   void connect(TConstOptRef<String> user);   // connect(name) or connect(nil)
//   if (user.hasValue()) login(*user);
//   String shown = user.getOr(u"anonymous");
//
// A value class. Not thread-safe (as any value).
#ifndef QO_CORE_TCONSTOPTREF_H
#define QO_CORE_TCONSTOPTREF_H

#include <cassert>
#include <optional>

#include "qo/core/P.h"  // CNil

namespace qo {

/// A borrowed const T, or nothing. Not thread-safe.
template <class T>
class TConstOptRef {
public:
  /// Nothing.
  constexpr TConstOptRef() noexcept = default;
  constexpr TConstOptRef(CNil) noexcept {}
  constexpr TConstOptRef(std::nullopt_t) noexcept {}
  /// Refers to value (implicit, so a T passes where an optional one is
  /// taken). value must outlive this object.
  constexpr TConstOptRef(T const& value) noexcept : m_p(&value) {}
  /// Refers to *p, or nothing when p is null.
  static constexpr TConstOptRef fromPtr(T const* p) noexcept {
    TConstOptRef ref;
    ref.m_p = p;
    return ref;
  }

  constexpr bool hasValue() const noexcept { return m_p != nullptr; }
  constexpr explicit operator bool() const noexcept { return m_p != nullptr; }
  /// The value; there must be one (asserted).
  constexpr T const& get() const noexcept {
    assert(m_p != nullptr);
    return *m_p;
  }
  constexpr T const& operator*() const noexcept { return get(); }
  constexpr T const* operator->() const noexcept { return &get(); }
  /// The address of the value, or null.
  constexpr T const* getPtr() const noexcept { return m_p; }
  /// A copy of the value, or of fallback when there is none. Returns by
  /// value (as std::optional::value_or), so a temporary fallback is safe.
  T getOr(T const& fallback) const { return m_p ? *m_p : fallback; }

private:
  T const* m_p = nullptr;
};

}  // namespace qo

#endif  // QO_CORE_TCONSTOPTREF_H

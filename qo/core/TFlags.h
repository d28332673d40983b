// qo/core/TFlags.h - a small set of enum values, held as a bit mask.
//
// Each enumerator names a bit *index*: value v is bit (1 << v), so ordinary
// enums counting 0, 1, 2, ... work without writing masks. Values must be
// 0..63 (asserted). The raw mask (getRaw/fromRaw) is what to store or
// transmit; it depends on the enumerators' values, so those must not change
// once masks are kept anywhere.
//
//   enum Flags { kCreate, kTruncate, kShareRead };
//   TFlags<Flags> flags{kCreate, kShareRead};
//   flags.has(kTruncate);          // false
//   flags |= kTruncate;            // flags.getRaw() == 0b111
//
// A value class. Not thread-safe (as any value).
#ifndef QO_CORE_TFLAGS_H
#define QO_CORE_TFLAGS_H

#include <cassert>
#include <initializer_list>
#include <type_traits>

namespace qo {

/// A set of values of the enum E (each 0..63). Not thread-safe.
template <class E>
class TFlags {
  static_assert(std::is_enum_v<E>, "TFlags holds enum values");

public:
  using Raw = unsigned long long;

  /// The empty set.
  constexpr TFlags() noexcept = default;
  /// The set of one value (implicit, so a lone value passes as a set).
  constexpr TFlags(E flag) noexcept : m_raw(bit(flag)) {}
  constexpr TFlags(std::initializer_list<E> flags) noexcept {
    for (E flag : flags) m_raw |= bit(flag);
  }
  /// The set whose mask is raw (bit v set = value v present).
  static constexpr TFlags fromRaw(Raw raw) noexcept {
    TFlags flags;
    flags.m_raw = raw;
    return flags;
  }

  /// The mask: bit v set for each value v in the set.
  constexpr Raw getRaw() const noexcept { return m_raw; }
  constexpr bool isEmpty() const noexcept { return m_raw == 0; }
  constexpr bool has(E flag) const noexcept { return (m_raw & bit(flag)) != 0; }
  /// True when any value of other is in the set (false for an empty other).
  constexpr bool hasAny(TFlags other) const noexcept { return (m_raw & other.m_raw) != 0; }
  /// True when every value of other is in the set (true for an empty other).
  constexpr bool hasAll(TFlags other) const noexcept { return (m_raw & other.m_raw) == other.m_raw; }

  /// Adds flag; returns *this.
  constexpr TFlags& set(E flag) noexcept {
    m_raw |= bit(flag);
    return *this;
  }
  /// Adds flag when on is true, removes it otherwise; returns *this.
  constexpr TFlags& set(E flag, bool on) noexcept { return on ? set(flag) : clear(flag); }
  /// Removes flag; returns *this.
  constexpr TFlags& clear(E flag) noexcept {
    m_raw &= ~bit(flag);
    return *this;
  }
  /// Removes every value.
  constexpr TFlags& clear() noexcept {
    m_raw = 0;
    return *this;
  }

  constexpr TFlags& operator|=(TFlags other) noexcept {
    m_raw |= other.m_raw;
    return *this;
  }
  constexpr TFlags& operator&=(TFlags other) noexcept {
    m_raw &= other.m_raw;
    return *this;
  }
  /// Union and intersection.
  friend constexpr TFlags operator|(TFlags a, TFlags b) noexcept { return a |= b; }
  friend constexpr TFlags operator&(TFlags a, TFlags b) noexcept { return a &= b; }
  friend constexpr bool operator==(TFlags a, TFlags b) noexcept { return a.m_raw == b.m_raw; }
  friend constexpr bool operator!=(TFlags a, TFlags b) noexcept { return a.m_raw != b.m_raw; }

private:
  static constexpr Raw bit(E flag) noexcept {
    // Through long long, so unsigned underlying types compare without warnings.
    auto const index = static_cast<long long>(static_cast<std::underlying_type_t<E>>(flag));
    assert(index >= 0 && index < 64);
    return Raw{1} << index;
  }

  Raw m_raw = 0;
};

}  // namespace qo

#endif  // QO_CORE_TFLAGS_H

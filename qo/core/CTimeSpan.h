// qo/core/CTimeSpan.h - a duration as a signed 64-bit count of microseconds.
//
// Rules:
// - The raw value INT64_MIN is reserved as "invalid" (invalid()); every other
//   value is valid, so the valid range is symmetric: -(2^63-1)..2^63-1 us,
//   about +-292 000 years. A default CTimeSpan is zero.
// - Invalid propagates: arithmetic with an invalid operand gives invalid; the
//   integer getters of an invalid span return INT64_MIN, its text is "invalid".
// - A result that leaves the valid range throws CInvalidArgError; nothing
//   wraps around or saturates silently.
// - The getters give the whole units in the span, truncated toward zero
//   (fromSeconds(-90).getMinutes() == -1).
// - Invalid orders before every valid span; two invalid spans are equal.
//
//   CTimeSpan wait = CTimeSpan::fromMillis(1500);
//   wait.getSeconds();                              // 1
//   CTimeSpan::fromSeconds(3723).toStringHMS();     // "1:02:03"
//
// A plain value: cheap to copy, not reference counted. Not thread-safe (as
// any value: share copies, not one object, between writers).
#ifndef QO_CORE_CTIMESPAN_H
#define QO_CORE_CTIMESPAN_H

#include <limits>

#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

namespace detail {
/// The raw value of an invalid CTime or CTimeSpan.
inline constexpr long long kInvalidMicros = std::numeric_limits<long long>::min();
inline constexpr long long kMaxMicros = std::numeric_limits<long long>::max();

/// Throws CInvalidArgError from place: a time value left the valid range.
/// The properties carry both operands ("value", "operand").
[[noreturn]] QO_API void throwTimeOutOfRange(char const* place, long long value, long long operand);

/// a + b for valid raw values; throws when the sum is outside the valid range.
constexpr long long addMicros(long long a, long long b, char const* place) {
  if (b > 0 ? a > kMaxMicros - b : a < -kMaxMicros - b) throwTimeOutOfRange(place, a, b);
  return a + b;
}

/// value * unit (unit > 0); throws when the product is outside the valid range.
constexpr long long scaleMicros(long long value, long long unit, char const* place) {
  if (value > kMaxMicros / unit || value < -(kMaxMicros / unit)) throwTimeOutOfRange(place, value, unit);
  return value * unit;
}
}  // namespace detail

/// A duration in microseconds, or invalid. Not thread-safe.
class QO_API CTimeSpan {
public:
  static constexpr long long kMicrosPerMilli = 1000;
  static constexpr long long kMicrosPerSecond = 1000 * kMicrosPerMilli;
  static constexpr long long kMicrosPerMinute = 60 * kMicrosPerSecond;
  static constexpr long long kMicrosPerHour = 60 * kMicrosPerMinute;
  static constexpr long long kMicrosPerDay = 24 * kMicrosPerHour;

  /// Zero.
  constexpr CTimeSpan() noexcept : m_micros(0) {}

  /// The distinguished invalid span.
  static constexpr CTimeSpan invalid() noexcept { return CTimeSpan(detail::kInvalidMicros); }
  /// The raw count; INT64_MIN gives invalid, so getMicros() round-trips.
  static constexpr CTimeSpan fromMicros(long long micros) noexcept { return CTimeSpan(micros); }
  /// Throws CInvalidArgError when the span is out of range (as do the others).
  static constexpr CTimeSpan fromMillis(long long millis) {
    return CTimeSpan(detail::scaleMicros(millis, kMicrosPerMilli, "CTimeSpan::fromMillis"));
  }
  static constexpr CTimeSpan fromSeconds(long long seconds) {
    return CTimeSpan(detail::scaleMicros(seconds, kMicrosPerSecond, "CTimeSpan::fromSeconds"));
  }
  static constexpr CTimeSpan fromMinutes(long long minutes) {
    return CTimeSpan(detail::scaleMicros(minutes, kMicrosPerMinute, "CTimeSpan::fromMinutes"));
  }
  static constexpr CTimeSpan fromHours(long long hours) {
    return CTimeSpan(detail::scaleMicros(hours, kMicrosPerHour, "CTimeSpan::fromHours"));
  }
  static constexpr CTimeSpan fromDays(long long days) {
    return CTimeSpan(detail::scaleMicros(days, kMicrosPerDay, "CTimeSpan::fromDays"));
  }
  /// Rounded to the nearest microsecond. Throws CInvalidArgError for NaN,
  /// infinities and values out of range.
  static CTimeSpan fromSecondsDouble(double seconds);

  constexpr bool isValid() const noexcept { return m_micros != detail::kInvalidMicros; }

  /// The raw count (INT64_MIN when invalid).
  constexpr long long getMicros() const noexcept { return m_micros; }
  /// Whole units, truncated toward zero; INT64_MIN when invalid.
  constexpr long long getMillis() const noexcept { return in(kMicrosPerMilli); }
  constexpr long long getSeconds() const noexcept { return in(kMicrosPerSecond); }
  constexpr long long getMinutes() const noexcept { return in(kMicrosPerMinute); }
  constexpr long long getHours() const noexcept { return in(kMicrosPerHour); }
  constexpr long long getDays() const noexcept { return in(kMicrosPerDay); }
  /// Seconds with the fraction; NaN when invalid.
  double getSecondsDouble() const noexcept;

  /// "H:MM:SS" of the whole seconds (truncated toward zero), the hours not
  /// limited: 3723 s -> "1:02:03", 90000 s -> "25:00:00", -5 s -> "-0:00:05",
  /// -0.5 s -> "0:00:00". An invalid span gives "invalid".
  String toStringHMS() const;

  /// Invalid when either side is invalid; throws CInvalidArgError on overflow.
  constexpr CTimeSpan operator+(CTimeSpan other) const {
    if (!isValid() || !other.isValid()) return invalid();
    return CTimeSpan(detail::addMicros(m_micros, other.m_micros, "CTimeSpan::operator+"));
  }
  constexpr CTimeSpan operator-(CTimeSpan other) const {
    if (!isValid() || !other.isValid()) return invalid();
    // -other never overflows: the valid range is symmetric.
    return CTimeSpan(detail::addMicros(m_micros, -other.m_micros, "CTimeSpan::operator-"));
  }
  /// Negation; invalid stays invalid. Never throws.
  constexpr CTimeSpan operator-() const noexcept { return isValid() ? CTimeSpan(-m_micros) : invalid(); }
  constexpr CTimeSpan& operator+=(CTimeSpan other) { return *this = *this + other; }
  constexpr CTimeSpan& operator-=(CTimeSpan other) { return *this = *this - other; }

  friend constexpr bool operator==(CTimeSpan a, CTimeSpan b) noexcept { return a.m_micros == b.m_micros; }
  friend constexpr bool operator!=(CTimeSpan a, CTimeSpan b) noexcept { return a.m_micros != b.m_micros; }
  friend constexpr bool operator<(CTimeSpan a, CTimeSpan b) noexcept { return a.m_micros < b.m_micros; }
  friend constexpr bool operator<=(CTimeSpan a, CTimeSpan b) noexcept { return a.m_micros <= b.m_micros; }
  friend constexpr bool operator>(CTimeSpan a, CTimeSpan b) noexcept { return a.m_micros > b.m_micros; }
  friend constexpr bool operator>=(CTimeSpan a, CTimeSpan b) noexcept { return a.m_micros >= b.m_micros; }

private:
  constexpr explicit CTimeSpan(long long micros) noexcept : m_micros(micros) {}
  constexpr long long in(long long unit) const noexcept { return isValid() ? m_micros / unit : m_micros; }

  long long m_micros;
};

}  // namespace qo

#endif  // QO_CORE_CTIMESPAN_H

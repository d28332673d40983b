// qo/core/CTime.h - a point in time as signed microseconds since
// 1970-01-01T00:00:00 UTC.
//
// Rules:
// - The raw value INT64_MIN is reserved as "invalid" (invalid()); a default
//   CTime is invalid. Valid times span about +-292 000 years around 1970.
// - Invalid propagates: invalid +- a span, a time +- an invalid span, and the
//   difference involving an invalid time are all invalid. Conversions of an
//   invalid time: getMicros/getSeconds/getCTime give INT64_MIN,
//   getWindowsFileTimeUTC gives 0, toString gives "invalid", getUTCFields
//   throws.
// - A result outside the valid range throws CInvalidArgError; nothing wraps
//   around or saturates silently.
// - Seconds are floored, not truncated: fromMicros(-1).getSeconds() == -1, so
//   a time before 1970 falls into the second (and day) that contains it.
// - Windows file times count 100 ns units since 1601-01-01 UTC and are read
//   as signed; reading one drops the sub-microsecond part (floored).
// - No leap seconds and no time zones: the calendar is the proleptic
//   Gregorian one, in UTC.
//
//   CTime start = CTime::now();
//   ...
//   CTimeSpan took = CTime::now() - start;
//   CTime::fromSeconds(946684800).toString();  // "2000-01-01T00:00:00.000000Z"
//
// A plain value: cheap to copy, not reference counted. Not thread-safe (as
// any value: share copies, not one object, between writers).
#ifndef QO_CORE_CTIME_H
#define QO_CORE_CTIME_H

#include <cstdint>

#include "qo/core/CTimeSpan.h"
#include "qo/core/Export.h"
#include "qo/core/String.h"

namespace qo {

/// A UTC point in time in microseconds, or invalid. Not thread-safe.
class QO_API CTime {
public:
  /// 100 ns units between 1601-01-01 and 1970-01-01 (11644473600 s).
  static constexpr long long kFileTimeOf1970 = 116444736000000000LL;

  /// Broken-down UTC time; month and day count from 1, year 0 is 1 BC
  /// (astronomical numbering, as ISO 8601).
  struct Fields {
    long long year = 1970;
    int month = 1;        ///< 1..12
    int day = 1;          ///< 1..31
    int hour = 0;         ///< 0..23
    int minute = 0;       ///< 0..59
    int second = 0;       ///< 0..59
    int microsecond = 0;  ///< 0..999999
  };

  /// Invalid.
  constexpr CTime() noexcept : m_micros(detail::kInvalidMicros) {}

  /// The distinguished invalid time.
  static constexpr CTime invalid() noexcept { return CTime(); }
  /// Microseconds since 1970; INT64_MIN gives invalid, so getMicros()
  /// round-trips.
  static constexpr CTime fromMicros(long long micros) noexcept { return CTime(micros); }
  /// Seconds since 1970. Throws CInvalidArgError when out of range.
  static constexpr CTime fromSeconds(long long seconds) {
    return CTime(detail::scaleMicros(seconds, CTimeSpan::kMicrosPerSecond, "CTime::fromSeconds"));
  }
  /// Seconds since 1970 with the fraction, rounded to the nearest
  /// microsecond. Throws CInvalidArgError for NaN, infinities and values out
  /// of range.
  static CTime fromSecondsDouble(double seconds);
  /// A C time_t value (seconds since 1970, UTC). Throws CInvalidArgError when
  /// out of range.
  static constexpr CTime fromCTime(long long timeT) {
    return CTime(detail::scaleMicros(timeT, CTimeSpan::kMicrosPerSecond, "CTime::fromCTime"));
  }
  /// A Windows file time (100 ns since 1601-01-01 UTC). Every value fits;
  /// 0 gives 1601-01-01T00:00:00Z, a valid time.
  static constexpr CTime fromFileTime(long long fileTime) noexcept {
    // Floor division, so a negative file time lands in the right microsecond.
    long long micros = fileTime / 10;
    if (fileTime % 10 < 0) --micros;
    return CTime(micros - kFileTimeOf1970 / 10);
  }
  /// A Windows FILETIME given as its two halves (dwLowDateTime,
  /// dwHighDateTime), read as one signed 64-bit value.
  static constexpr CTime fromFileTimeParts(std::uint32_t lowDateTime, std::uint32_t highDateTime) noexcept {
    return fromFileTime(static_cast<long long>((static_cast<unsigned long long>(highDateTime) << 32) | lowDateTime));
  }
  /// The current time from the system clock. Thread-safe.
  static CTime now();
  /// The time the fields name. Throws CInvalidArgError when a field is out
  /// of its range (February 30th, hour 24, ...) or the time out of range.
  static CTime fromUTCFields(Fields const& fields);
  /// Reads "YYYY-MM-DDTHH:MM:SS[.f...](Z|+HH:MM|-HH:MM)": what toString()
  /// writes, plus fractions of 1 to 9 digits (floored to microseconds), zone
  /// offsets and the signed years of toString. Throws CParseError with the
  /// properties "text" and "offset" (the index of the first bad character).
  static CTime fromISOString(String const& text);

  constexpr bool isValid() const noexcept { return m_micros != detail::kInvalidMicros; }

  /// Microseconds since 1970 (INT64_MIN when invalid).
  constexpr long long getMicros() const noexcept { return m_micros; }
  /// Whole seconds since 1970, floored; INT64_MIN when invalid.
  constexpr long long getSeconds() const noexcept {
    if (!isValid()) return m_micros;
    long long seconds = m_micros / CTimeSpan::kMicrosPerSecond;
    if (m_micros % CTimeSpan::kMicrosPerSecond < 0) --seconds;
    return seconds;
  }
  /// As a C time_t value: getSeconds().
  constexpr long long getCTime() const noexcept { return getSeconds(); }
  /// Seconds since 1970 with the fraction; NaN when invalid.
  double getSecondsDouble() const noexcept;
  /// As a Windows file time (100 ns since 1601-01-01 UTC); negative before
  /// 1601; 0 when invalid. Throws CInvalidArgError for a time beyond the
  /// range of file times (about 29 000 years around 1601).
  constexpr long long getWindowsFileTimeUTC() const {
    if (!isValid()) return 0;
    return detail::scaleMicros(detail::addMicros(m_micros, kFileTimeOf1970 / 10, "CTime::getWindowsFileTimeUTC"), 10,
                               "CTime::getWindowsFileTimeUTC");
  }
  /// The broken-down UTC time. Throws CInvalidArgError when invalid.
  Fields getUTCFields() const;
  /// ISO 8601 in UTC with six fraction digits:
  /// "2026-11-23T10:53:24.123456Z". Years beyond 0..9999 get a sign and at
  /// least four digits ("-0001-...", "+10000-..."). "invalid" when invalid.
  String toString() const;

  /// Invalid when either side is invalid; throws CInvalidArgError on overflow.
  constexpr CTime operator+(CTimeSpan span) const {
    if (!isValid() || !span.isValid()) return invalid();
    return CTime(detail::addMicros(m_micros, span.getMicros(), "CTime::operator+"));
  }
  constexpr CTime operator-(CTimeSpan span) const {
    if (!isValid() || !span.isValid()) return invalid();
    return CTime(detail::addMicros(m_micros, -span.getMicros(), "CTime::operator-"));
  }
  /// The span from other to this. Invalid when either is invalid; throws
  /// CInvalidArgError when the span does not fit (times 300 000 years apart).
  constexpr CTimeSpan operator-(CTime other) const {
    if (!isValid() || !other.isValid()) return CTimeSpan::invalid();
    return CTimeSpan::fromMicros(detail::addMicros(m_micros, -other.m_micros, "CTime::operator-"));
  }
  constexpr CTime& operator+=(CTimeSpan span) { return *this = *this + span; }
  constexpr CTime& operator-=(CTimeSpan span) { return *this = *this - span; }

  // Invalid orders before every valid time; two invalid times are equal.
  friend constexpr bool operator==(CTime a, CTime b) noexcept { return a.m_micros == b.m_micros; }
  friend constexpr bool operator!=(CTime a, CTime b) noexcept { return a.m_micros != b.m_micros; }
  friend constexpr bool operator<(CTime a, CTime b) noexcept { return a.m_micros < b.m_micros; }
  friend constexpr bool operator<=(CTime a, CTime b) noexcept { return a.m_micros <= b.m_micros; }
  friend constexpr bool operator>(CTime a, CTime b) noexcept { return a.m_micros > b.m_micros; }
  friend constexpr bool operator>=(CTime a, CTime b) noexcept { return a.m_micros >= b.m_micros; }

private:
  constexpr explicit CTime(long long micros) noexcept : m_micros(micros) {}

  long long m_micros;
};

}  // namespace qo

#endif  // QO_CORE_CTIME_H

#include "qo/core/CTime.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CProps.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>

namespace qo {

namespace {

// Years well past the valid range on both sides (about -290 308..294 247),
// small enough that the day arithmetic below cannot overflow; the final
// range check rejects the rest.
constexpr long long kMaxYear = 300000;

constexpr long long floorDiv(long long a, long long b) { return a / b - (a % b < 0 ? 1 : 0); }

constexpr bool isLeapYear(long long year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

constexpr int daysInMonth(long long year, int month) {
  constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Days since 1970-01-01 of a proleptic Gregorian date. Counts in 400-year
// eras (146097 days each) with years starting on March 1st, so that the leap
// day is the last day of its year and needs no special case.
constexpr long long daysFromCivil(long long year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  long long const era = floorDiv(year, 400);
  long long const yearOfEra = year - era * 400;                                        // 0..399
  long long const dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;  // 0..365
  long long const dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;  // 0..146096
  return era * 146097 + dayOfEra - 719468;  // 719468: days from 0000-03-01 to 1970-01-01
}

// The inverse of daysFromCivil.
void civilFromDays(long long days, CTime::Fields& fields) {
  days += 719468;
  long long const era = floorDiv(days, 146097);
  long long const dayOfEra = days - era * 146097;
  long long const yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  long long const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  long long const shiftedMonth = (5 * dayOfYear + 2) / 153;  // 0 = March
  fields.day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  fields.month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  fields.year = yearOfEra + era * 400 + (fields.month <= 2 ? 1 : 0);
}

void checkField(long long value, long long low, long long high, char16_t const* name) {
  if (value < low || value > high) {
    throw CInvalidArgError(u"CTime::fromUTCFields", String(u"the ") + name + u" is out of range",
                           CProps().addLong(name, value));
  }
}

// Reads the ISO form; positions are code-unit indices into the text.
class CISOReader {
public:
  explicit CISOReader(String const& text) : m_source(text), m_text(text.str()) {}

  CTime read() {
    CTime::Fields fields;
    long long yearSign = 1;
    if (peek() == u'+' || peek() == u'-') {
      yearSign = peek() == u'-' ? -1 : 1;
      ++m_pos;
    }
    fields.year = yearSign * number(4, 6);
    expect(u'-');
    std::size_t fieldPos = m_pos;
    fields.month = static_cast<int>(number(2, 2));
    if (fields.month < 1 || fields.month > 12) fail(fieldPos);
    expect(u'-');
    fieldPos = m_pos;
    fields.day = static_cast<int>(number(2, 2));
    if (fields.day < 1 || fields.day > daysInMonth(fields.year, fields.month)) fail(fieldPos);
    expect(u'T');
    fields.hour = static_cast<int>(bounded(23));
    expect(u':');
    fields.minute = static_cast<int>(bounded(59));
    expect(u':');
    fields.second = static_cast<int>(bounded(59));
    if (peek() == u'.') {
      ++m_pos;
      std::size_t const start = m_pos;
      long long fraction = 0;
      while (m_pos < m_text.size() && isDigit(m_text[m_pos]) && m_pos - start < 9) {
        // Digits past the sixth are below a microsecond: floored away.
        if (m_pos - start < 6) fraction = fraction * 10 + (m_text[m_pos] - u'0');
        ++m_pos;
      }
      if (m_pos == start) fail(m_pos);
      for (std::size_t n = m_pos - start; n < 6; ++n) fraction *= 10;
      fields.microsecond = static_cast<int>(fraction);
    }
    long long offsetMinutes = 0;
    if (peek() == u'Z') {
      ++m_pos;
    } else if (peek() == u'+' || peek() == u'-') {
      long long const sign = peek() == u'-' ? -1 : 1;
      ++m_pos;
      long long const hours = bounded(23);
      expect(u':');
      offsetMinutes = sign * (hours * 60 + bounded(59));
    } else {
      fail(m_pos);
    }
    if (m_pos != m_text.size()) fail(m_pos);
    try {
      // Local time minus its offset is UTC.
      return CTime::fromUTCFields(fields) - CTimeSpan::fromMinutes(offsetMinutes);
    } catch (CInvalidArgError const&) {
      fail(0);  // the year lies too far out
    }
  }

private:
  static bool isDigit(char16_t c) { return c >= u'0' && c <= u'9'; }
  char16_t peek() const { return m_pos < m_text.size() ? m_text[m_pos] : u'\0'; }

  [[noreturn]] void fail(std::size_t pos) const {
    throw CParseError(u"Cannot read the text as an ISO 8601 time.",
                      CProps().add(u"text", m_source).addLong(u"offset", static_cast<long long>(pos)));
  }
  void expect(char16_t c) {
    if (peek() != c) fail(m_pos);
    ++m_pos;
  }
  long long number(std::size_t minDigits, std::size_t maxDigits) {
    std::size_t const start = m_pos;
    long long value = 0;
    while (m_pos - start < maxDigits && isDigit(peek())) value = value * 10 + (m_text[m_pos++] - u'0');
    if (m_pos - start < minDigits) fail(m_pos);
    return value;
  }
  long long bounded(long long max) {
    std::size_t const start = m_pos;
    long long const value = number(2, 2);
    if (value > max) fail(start);
    return value;
  }

  String const& m_source;
  std::u16string const& m_text;
  std::size_t m_pos = 0;
};

}  // namespace

CTime CTime::fromSecondsDouble(double seconds) {
  try {
    return CTime(CTimeSpan::fromSecondsDouble(seconds).getMicros());
  } catch (CInvalidArgError const&) {
    throw CInvalidArgError(u"CTime::fromSecondsDouble", u"the seconds are not finite or out of range",
                           CProps().add(u"seconds", qo::toString(seconds)));
  }
}

CTime CTime::now() {
  auto const sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return CTime(std::chrono::duration_cast<std::chrono::microseconds>(sinceEpoch).count());
}

CTime CTime::fromUTCFields(Fields const& fields) {
  checkField(fields.year, -kMaxYear, kMaxYear, u"year");
  checkField(fields.month, 1, 12, u"month");
  checkField(fields.day, 1, daysInMonth(fields.year, fields.month), u"day");
  checkField(fields.hour, 0, 23, u"hour");
  checkField(fields.minute, 0, 59, u"minute");
  checkField(fields.second, 0, 59, u"second");
  checkField(fields.microsecond, 0, 999999, u"microsecond");
  long long days = daysFromCivil(fields.year, fields.month, fields.day);
  long long timeOfDay = fields.hour * CTimeSpan::kMicrosPerHour + fields.minute * CTimeSpan::kMicrosPerMinute +
                        fields.second * CTimeSpan::kMicrosPerSecond + fields.microsecond;
  if (days < 0) {
    // Borrow a day so that the product never passes the lowest valid time
    // when the sum would not.
    ++days;
    timeOfDay -= CTimeSpan::kMicrosPerDay;
  }
  char const* const place = "CTime::fromUTCFields";
  return CTime(detail::addMicros(detail::scaleMicros(days, CTimeSpan::kMicrosPerDay, place), timeOfDay, place));
}

CTime CTime::fromISOString(String const& text) { return CISOReader(text).read(); }

double CTime::getSecondsDouble() const noexcept { return CTimeSpan::fromMicros(m_micros).getSecondsDouble(); }

CTime::Fields CTime::getUTCFields() const {
  if (!isValid()) throw CInvalidArgError(u"CTime::getUTCFields", u"the time is invalid");
  // Remainder first: days * kMicrosPerDay may lie below the valid range.
  long long days = m_micros / CTimeSpan::kMicrosPerDay;
  long long timeOfDay = m_micros % CTimeSpan::kMicrosPerDay;
  if (timeOfDay < 0) {
    timeOfDay += CTimeSpan::kMicrosPerDay;
    --days;
  }
  Fields fields;
  civilFromDays(days, fields);
  fields.hour = static_cast<int>(timeOfDay / CTimeSpan::kMicrosPerHour);
  timeOfDay %= CTimeSpan::kMicrosPerHour;
  fields.minute = static_cast<int>(timeOfDay / CTimeSpan::kMicrosPerMinute);
  timeOfDay %= CTimeSpan::kMicrosPerMinute;
  fields.second = static_cast<int>(timeOfDay / CTimeSpan::kMicrosPerSecond);
  fields.microsecond = static_cast<int>(timeOfDay % CTimeSpan::kMicrosPerSecond);
  return fields;
}

String CTime::toString() const {
  if (!isValid()) return String(u"invalid");
  Fields const f = getUTCFields();
  std::string text;
  if (f.year < 0) {
    text += '-';
  } else if (f.year > 9999) {
    text += '+';
  }
  std::string const year = std::to_string(f.year < 0 ? -f.year : f.year);
  if (year.size() < 4) text.append(4 - year.size(), '0');
  text += year;
  // %d of an int is not affected by the locale.
  char rest[96];  // room for any int, so no truncation warning
  std::snprintf(rest, sizeof rest, "-%02d-%02dT%02d:%02d:%02d.%06dZ", f.month, f.day, f.hour, f.minute, f.second,
                f.microsecond);
  text += rest;
  return String(std::string_view(text));
}

}  // namespace qo

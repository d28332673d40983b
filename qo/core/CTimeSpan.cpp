#include "qo/core/CTimeSpan.h"

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"

#include <cmath>
#include <string>

namespace qo {

namespace detail {

void throwTimeOutOfRange(char const* place, long long value, long long operand) {
  throw CInvalidArgError(String(place), u"the time value is out of range",
                         CProps().addLong(u"value", value).addLong(u"operand", operand));
}

}  // namespace detail

CTimeSpan CTimeSpan::fromSecondsDouble(double seconds) {
  double const micros = seconds * static_cast<double>(kMicrosPerSecond);
  // 2^63 is exact as a double; the open interval keeps llround defined and
  // the result away from the invalid marker.
  double const limit = 9223372036854775808.0;
  if (!(micros > -limit && micros < limit)) {
    throw CInvalidArgError(u"CTimeSpan::fromSecondsDouble", u"the seconds are not finite or out of range",
                           CProps().add(u"seconds", toString(seconds)));
  }
  return CTimeSpan(std::llround(micros));
}

double CTimeSpan::getSecondsDouble() const noexcept {
  if (!isValid()) return std::nan("");
  // Whole seconds and the fraction apart: one division of the raw count
  // would lose the microseconds of large values to double rounding twice.
  return static_cast<double>(m_micros / kMicrosPerSecond) +
         static_cast<double>(m_micros % kMicrosPerSecond) / static_cast<double>(kMicrosPerSecond);
}

String CTimeSpan::toStringHMS() const {
  if (!isValid()) return String(u"invalid");
  long long const seconds = getSeconds();
  // |seconds| <= 2^63 / 10^6, so the negation is safe.
  unsigned long long const magnitude = static_cast<unsigned long long>(seconds < 0 ? -seconds : seconds);
  unsigned long long const minutes = magnitude / 60 % 60;
  unsigned long long const secs = magnitude % 60;
  std::string text;
  if (seconds < 0) text += '-';
  text += std::to_string(magnitude / 3600);
  text += ':';
  text += static_cast<char>('0' + minutes / 10);
  text += static_cast<char>('0' + minutes % 10);
  text += ':';
  text += static_cast<char>('0' + secs / 10);
  text += static_cast<char>('0' + secs % 10);
  return String(std::string_view(text));
}

}  // namespace qo

#include "qo/platform/LocalTime.h"

#include <windows.h>

namespace qo::platform {

SysError toLocalTime(long long secondsSince1970, LocalTimeFields& out) {
  // FILETIME counts 100 ns units since 1601; beyond the range of
  // FileTimeToSystemTime (year 30827) the call itself refuses.
  constexpr long long kFileTimeOf1970 = 116444736000000000LL;
  constexpr long long kMaxSeconds = (0x7FFFFFFFFFFFFFFFLL - kFileTimeOf1970) / 10000000LL;
  if (secondsSince1970 < -kFileTimeOf1970 / 10000000LL || secondsSince1970 > kMaxSeconds)
    return SysError{ERROR_INVALID_PARAMETER, sysErrorText(ERROR_INVALID_PARAMETER)};
  unsigned long long const fileTime =
      static_cast<unsigned long long>(secondsSince1970 * 10000000LL + kFileTimeOf1970);
  FILETIME utc;
  utc.dwLowDateTime = static_cast<DWORD>(fileTime & 0xFFFFFFFFu);
  utc.dwHighDateTime = static_cast<DWORD>(fileTime >> 32);
  SYSTEMTIME utcFields;
  SYSTEMTIME local;
  if (!FileTimeToSystemTime(&utc, &utcFields) || !SystemTimeToTzSpecificLocalTime(nullptr, &utcFields, &local))
    return lastSysError();
  out.year = local.wYear;
  out.month = local.wMonth;
  out.day = local.wDay;
  out.hour = local.wHour;
  out.minute = local.wMinute;
  out.second = local.wSecond;
  return SysError{};
}

}  // namespace qo::platform

// qo/platform/LocalTime.h - a UTC instant as the wall-clock time of this
// machine's time zone (internal, OS-free).
//
// The session log stamps its sessions and entries in local time, as the
// person reading the log sees the clock. localtime_r on POSIX,
// SystemTimeToTzSpecificLocalTime on Windows (daylight saving time as it was
// in force at that instant).
//
//   LocalTimeFields t;
//   if (!toLocalTime(now, t)) print(t.year, t.month, t.day, t.hour);
//
// Never throws; thread-safe.
#ifndef QO_PLATFORM_LOCALTIME_H
#define QO_PLATFORM_LOCALTIME_H

#include "qo/platform/LastError.h"

namespace qo::platform {

struct LocalTimeFields {
  int year = 1970;
  int month = 1;   ///< 1..12
  int day = 1;     ///< 1..31
  int hour = 0;    ///< 0..23
  int minute = 0;  ///< 0..59
  int second = 0;  ///< 0..60 (a leap second where the OS reports one)
};

/// Fills out with the local time of secondsSince1970 (UTC). Fails (out
/// unchanged) when the OS cannot represent the instant.
SysError toLocalTime(long long secondsSince1970, LocalTimeFields& out);

}  // namespace qo::platform

#endif  // QO_PLATFORM_LOCALTIME_H

#include "qo/platform/LocalTime.h"

#include <cerrno>
#include <ctime>
#include <limits>
#include <mutex>

#include <time.h>

namespace qo::platform {

SysError toLocalTime(long long secondsSince1970, LocalTimeFields& out) {
  if (secondsSince1970 < std::numeric_limits<time_t>::min() || secondsSince1970 > std::numeric_limits<time_t>::max())
    return sysErrorOf(EOVERFLOW, "localtime_r");
  time_t const t = static_cast<time_t>(secondsSince1970);
  struct tm fields {};
  // localtime_r need not read TZ again; tzset keeps a changed zone visible.
  // The C library guards its zone state with a lock of its own that race
  // detectors cannot see; one lock here keeps the pair visibly serialised.
  static std::mutex g_zoneLock;
  std::unique_lock<std::mutex> zone(g_zoneLock);
  tzset();
  struct tm* converted = localtime_r(&t, &fields);
  zone.unlock();
  if (converted == nullptr) {
    int const code = errno != 0 ? errno : EOVERFLOW;
    return sysErrorOf(static_cast<std::uint32_t>(code), "localtime_r");
  }
  out.year = fields.tm_year + 1900;
  out.month = fields.tm_mon + 1;
  out.day = fields.tm_mday;
  out.hour = fields.tm_hour;
  out.minute = fields.tm_min;
  out.second = fields.tm_sec;
  return SysError{};
}

}  // namespace qo::platform

#include "qo/platform/LastError.h"

#include <cerrno>
#include <cstring>

#include <string.h>

namespace qo::platform {

std::uint32_t getLastSysError() { return static_cast<std::uint32_t>(errno); }
void setLastSysError(std::uint32_t code) { errno = static_cast<int>(code); }

std::string sysErrorText(std::uint32_t code) {
  char buffer[256] = {};
  // The GNU strerror_r may return a static string instead of filling buffer.
#if defined(__GLIBC__) && defined(_GNU_SOURCE)
  return strerror_r(static_cast<int>(code), buffer, sizeof buffer);
#else
  if (strerror_r(static_cast<int>(code), buffer, sizeof buffer) != 0) return "Unknown error " + std::to_string(code);
  return buffer;
#endif
}

SysError lastSysError(char const* api) { return sysErrorOf(getLastSysError(), api); }

SysError sysErrorOf(std::uint32_t code, char const* api) { return SysError{code, sysErrorText(code), api}; }

}  // namespace qo::platform

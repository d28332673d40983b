// qo/platform/LastError.h - the calling thread's last system error code
// (internal, OS-free).
//
// GetLastError/SetLastError on Windows, errno elsewhere. SysError is the
// OS-neutral failure that platform functions hand up instead of throwing;
// the class code picks the CError to raise.
#ifndef QO_PLATFORM_LASTERROR_H
#define QO_PLATFORM_LASTERROR_H

#include <cstdint>
#include <string>

namespace qo::platform {

/// A failed system call: the OS's code (0 = no error), the OS's text for it
/// in UTF-8 and, where the POSIX build stands in for a Windows call, the
/// POSIX call that failed ("pthread_create", "sem_open"; a static text).
/// Null api: the call is the one the caller names (always on Windows).
struct SysError {
  std::uint32_t code = 0;
  std::string text;
  char const* api = nullptr;
  explicit operator bool() const { return code != 0; }
};

std::uint32_t getLastSysError();
void setLastSysError(std::uint32_t code);
/// The OS's description of a code, in UTF-8, without a trailing newline.
std::string sysErrorText(std::uint32_t code);
/// The last system error with its text, naming api (may be null) as the
/// call that failed.
SysError lastSysError(char const* api = nullptr);
/// The error for code with its text, naming api (may be null).
SysError sysErrorOf(std::uint32_t code, char const* api = nullptr);

}  // namespace qo::platform

#endif  // QO_PLATFORM_LASTERROR_H

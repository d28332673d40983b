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

/// A failed system call: the OS's code (0 = no error) and the OS's text for
/// it, in UTF-8.
struct SysError {
  std::uint32_t code = 0;
  std::string text;
  explicit operator bool() const { return code != 0; }
};

std::uint32_t getLastSysError();
void setLastSysError(std::uint32_t code);
/// The OS's description of a code, in UTF-8, without a trailing newline.
std::string sysErrorText(std::uint32_t code);
/// The last system error with its text.
SysError lastSysError();

}  // namespace qo::platform

#endif  // QO_PLATFORM_LASTERROR_H

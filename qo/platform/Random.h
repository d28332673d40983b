// qo/platform/Random.h - the OS's cryptographically secure random bytes
// (internal, OS-free).
//
// Windows: BCryptGenRandom with the system-preferred generator. POSIX:
// getrandom, repeated for partial results and interruptions. Both block only
// before the OS has gathered its first entropy at boot.
//
//   unsigned char key[16];
//   if (SysError e = fillRandom(key, sizeof key)) report(e);
//
// Never throws; thread-safe.
#ifndef QO_PLATFORM_RANDOM_H
#define QO_PLATFORM_RANDOM_H

#include <cstddef>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// The name of the call fillRandom makes, as errors report it:
/// "BCryptGenRandom" on Windows, "getrandom" elsewhere.
char const* randomApiName();

/// Fills size bytes at buffer with random bytes; on failure the contents
/// are unspecified.
SysError fillRandom(void* buffer, std::size_t size);

}  // namespace qo::platform

#endif  // QO_PLATFORM_RANDOM_H

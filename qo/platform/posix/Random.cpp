#include "qo/platform/Random.h"

#include <sys/random.h>

#include <cerrno>

namespace qo::platform {

char const* randomApiName() { return "getrandom"; }

SysError fillRandom(void* buffer, std::size_t size) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    // getrandom returns at most 32 MiB - 1 per call and may stop early on a
    // signal; both are resumed here.
    ssize_t got = getrandom(out, size, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      return lastSysError("getrandom");
    }
    out += got;
    size -= static_cast<std::size_t>(got);
  }
  return SysError();
}

}  // namespace qo::platform

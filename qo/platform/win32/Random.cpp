#include "qo/platform/Random.h"

#include <windows.h>
#include <bcrypt.h>

#include <string>

namespace qo::platform {

char const* randomApiName() { return "BCryptGenRandom"; }

SysError fillRandom(void* buffer, std::size_t size) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    ULONG chunk = size > 0x40000000u ? 0x40000000u : static_cast<ULONG>(size);
    NTSTATUS status = BCryptGenRandom(nullptr, out, chunk, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    if (status < 0) {
      auto code = static_cast<std::uint32_t>(status);
      return SysError{code, "BCryptGenRandom failed with NTSTATUS " + std::to_string(code)};
    }
    out += chunk;
    size -= chunk;
  }
  return SysError();
}

}  // namespace qo::platform

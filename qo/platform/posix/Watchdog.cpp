#include "qo/platform/Watchdog.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>
#if defined(__linux__)
#include <sys/prctl.h>

#include "qo/platform/posix/Utf8Text.h"
#endif

namespace qo::platform {

SysError watchdogAllowTracer(std::uint64_t processId) {
#if defined(__linux__)
  if (prctl(PR_SET_PTRACER, static_cast<unsigned long>(processId), 0, 0, 0) != 0 && errno != EINVAL) {
    return lastSysError("prctl");
  }
#else
  (void)processId;
#endif
  return SysError();
}

SysError watchdogLibraryPath(std::u16string& path) {
  path.clear();
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&watchdogLibraryPath), &info) == 0 || info.dli_fname == nullptr) {
    return sysErrorOf(ENOENT, "dladdr");
  }
  char resolved[PATH_MAX];
  char const* name = info.dli_fname;
  if (realpath(name, resolved) != nullptr) name = resolved;
  // The path as the file system has it: UTF-8, each byte of other text as
  // itself.
  path = utf16FromSystem(name);
  return SysError();
}

bool watchdogProcessAlive(std::uint64_t processId) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%llu/stat", static_cast<unsigned long long>(processId));
  int const fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char text[512];
  ssize_t const n = ::read(fd, text, sizeof text - 1);
  ::close(fd);
  if (n <= 0) return false;
  text[n] = 0;
  // "pid (name) S ...": the state follows the last ')'.
  char const* close = std::strrchr(text, ')');
  if (close == nullptr || close[1] != ' ') return false;
  char const state = close[2];
  return state != 'Z' && state != 'X' && state != 'x';
}

}  // namespace qo::platform

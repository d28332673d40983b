#include "qo/platform/NetworkShare.h"

#include "qo/platform/posix/NativeName.h"

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace qo::platform {

bool netShareHasConnectCall() { return false; }

NetShareFailure netShareFailureOf(std::uint32_t code) {
  switch (static_cast<int>(code)) {
    case ENOENT:  // the folder of an unmounted share is empty
    case ENOTCONN:
    case ESTALE:
    case EHOSTDOWN:
    case EHOSTUNREACH:
    case ENETUNREACH: return NetShareFailure::NotConnected;
    case EACCES:
    case EKEYEXPIRED:
    case EKEYREJECTED: return NetShareFailure::NeedsCredentials;
    default: return NetShareFailure::Other;
  }
}

SysError netShareConnect(std::u16string const&, std::u16string const&, std::u16string const&) {
  return sysErrorOf(ENOTSUP, "mount");
}

SysError netShareDisconnect(std::u16string const&) { return sysErrorOf(ENOTSUP, "umount"); }

SysError netShareIsMounted(std::u16string const& path, bool& mounted) {
  mounted = false;
  std::string p;
  if (!nameToNative(path.data(), path.size(), p)) return sysErrorOf(EILSEQ, "statx");
  while (p.size() > 1 && p.back() == '/') p.pop_back();
#ifdef STATX_ATTR_MOUNT_ROOT
  struct statx sx;
  if (statx(AT_FDCWD, p.c_str(), AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS, &sx) != 0) return lastSysError("statx");
  if (sx.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) {
    mounted = (sx.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
    return SysError{};
  }
#endif
  // Without the attribute a bind mount of the same file system cannot be
  // told; a mount of another one changes the device.
  struct stat here;
  struct stat parent;
  if (::stat(p.c_str(), &here) != 0) return lastSysError("stat");
  std::string const up = p == "/" ? p : p + "/..";
  if (::stat(up.c_str(), &parent) != 0) return lastSysError("stat");
  mounted = p == "/" || here.st_dev != parent.st_dev;
  return SysError{};
}

}  // namespace qo::platform

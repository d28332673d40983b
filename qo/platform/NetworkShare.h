// qo/platform/NetworkShare.h - connecting network shares and telling why a
// call on a network location failed (internal, OS-free).
//
// Windows: WNetAddConnection2W / WNetCancelConnection2W (mpr) on UNC shares
// ("\\server\share"), connected without a drive letter for this logon
// session. POSIX has no such call: a share is mounted on a folder by a
// helper program (the class runs it through the Process service), and
// netShareIsMounted tells whether a folder is the root of a mount (statx's
// STATX_ATTR_MOUNT_ROOT, else a device change against the parent).
//
//   if (netShareFailureOf(code) == NetShareFailure::NotConnected)
//     netShareConnect(u"\\\\srv\\data", user, secret);
//
// The functions never throw and are thread-safe.
#ifndef QO_PLATFORM_NETWORKSHARE_H
#define QO_PLATFORM_NETWORKSHARE_H

#include <cstdint>
#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// What a failure code (this OS's) of a call on a network location says.
enum class NetShareFailure {
  Other,             ///< Not a matter of the share's connection.
  NotConnected,      ///< The share is not connected (or unreachable).
  NeedsCredentials,  ///< The server refused the account used.
};

/// Whether shares are connected by the OS call (Windows) rather than
/// mounted by a helper program (POSIX).
bool netShareHasConnectCall();
/// What code says about a call on a network location.
NetShareFailure netShareFailureOf(std::uint32_t code);
/// Connects the share remote ("\\server\share") with user and secret
/// (empty user: the process's own account). POSIX: ENOTSUP.
SysError netShareConnect(std::u16string const& remote, std::u16string const& user, std::u16string const& secret);
/// Disconnects a share connected by netShareConnect, even with files open
/// on it. POSIX: ENOTSUP.
SysError netShareDisconnect(std::u16string const& remote);
/// Whether the folder path is the root of a mount (POSIX). Windows:
/// ERROR_NOT_SUPPORTED.
SysError netShareIsMounted(std::u16string const& path, bool& mounted);

}  // namespace qo::platform

#endif  // QO_PLATFORM_NETWORKSHARE_H

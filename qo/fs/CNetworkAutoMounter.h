// qo/fs/CNetworkAutoMounter.h - connects a network share when a call on it
// fails because it is not connected, and disconnects it at the end.
//
// run(uri, call) makes the call; when it fails because the share under uri
// is not connected (or refused the account used), the mounter asks the login
// manager for credentials, connects the share and makes the call once more.
// A second failure is thrown as it is. What the mounter connected it
// remembers and disconnects at _deinit(), which ~CQoInit calls first.
//
// - Windows: a "file" URI with a host is a UNC path ("file://srv/data/x" is
//   "\\srv\data\x"); its share "\\srv\data" is connected with
//   WNetAddConnection2W (no drive letter) when the failure's system code says
//   "not connected" (bad network path or name, not connected) or "needs
//   credentials" (access denied, logon failure), and disconnected with
//   WNetCancelConnection2W. addShare and setMountCommands are not available
//   there (CNotImplementedError).
// - POSIX: a share is a folder (the mount point) that a helper program
//   mounts. addShare names the share and its mount point; a failure on a URI
//   inside a mount point that is not mounted runs the mount command, and
//   _deinit runs the unmount command. Commands are program and arguments,
//   never a shell; in every argument "{remote}", "{mountPoint}" and "{user}"
//   are replaced, and the secret goes to the helper only in its environment
//   as PASSWD (and the user as USER), where mount.cifs reads them. Defaults:
//   mount -t cifs {remote} {mountPoint}, and umount {mountPoint}.
//
// Credentials: the login manager's getLogin(uri, ...); none (or no manager)
// connects with the process's own account. When the share refuses the
// credentials given, onLoginFailed(uri, user) tells the manager.
//
//   CNetworkAutoMounter::get()->setLoginManager(logins);
//   P<IIOStream> s = CNetworkAutoMounter::get()->run(uri, [&] {
//     return fs->createStream(uri, IIOStream::AccessReadOnly, {});
//   });
//
// Thread-safe: one connection at a time; a thread that failed while another
// connected the same share just makes its call again.
#ifndef QO_FS_CNETWORKAUTOMOUNTER_H
#define QO_FS_CNETWORKAUTOMOUNTER_H

#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileSystemLoginManager.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Connects network shares on demand. Singleton; thread-safe.
class QO_API CNetworkAutoMounter : public CBase {
public:
  /// The process's mounter (made on first use).
  static P<CNetworkAutoMounter> const& get();

  CNetworkAutoMounter();
  /// Disconnects what is still connected (as _deinit). Never throws.
  ~CNetworkAutoMounter() override;
  CNetworkAutoMounter(CNetworkAutoMounter const&) = delete;
  CNetworkAutoMounter& operator=(CNetworkAutoMounter const&) = delete;

  /// Sets the source of credentials (kept; null: none). Thread-safe.
  void setLoginManager(IFileSystemLoginManager* manager);
  /// POSIX: the share remote (the helper's "{remote}", e.g. "//srv/data")
  /// appears at the folder mountPoint (a "file" URI) once mounted; replaces
  /// an earlier share of that mount point. Throws CNotImplementedError on
  /// Windows, CFileSystemError kUnservedURI for a mountPoint that is not a
  /// local file URI. Thread-safe.
  void addShare(String const& remote, CURI const& mountPoint);
  /// POSIX: the helper commands (program first) that mount and unmount a
  /// share. Throws CNotImplementedError on Windows, CInvalidArgError
  /// ("CNetworkAutoMounter::setMountCommands") for an empty command.
  /// Thread-safe.
  void setMountCommands(std::vector<String> const& mount, std::vector<String> const& unmount);

  /// call(); when it throws a CError because the share under uri is not
  /// connected, connects it (see connectFor) and returns call() made once
  /// more. Throws what call throws, or connectFor's error (whose cause is
  /// the first failure).
  template <class F>
  auto run(CURI const& uri, F const& call) -> decltype(call()) {
    try {
      return call();
    } catch (CError const& e) {
      if (!connectFor(uri, e)) throw;
    }
    return call();
  }

  /// Connects the share under uri when failure says it is not connected or
  /// needs credentials: true when it did (or another thread just did), so
  /// the caller should try again; false when failure is not about a share
  /// this mounter can connect. Throws, with failure as cause, CSystemError
  /// (function "CNetworkAutoMounter::connectFor", api "WNetAddConnection2W"
  /// or the POSIX call that could not start the helper; property "remote")
  /// or, when the helper ends with another exit code than 0, CError "The
  /// mount helper failed." with "remote", "mountPoint", "program",
  /// "exitCode" and "output" (what it wrote, at most 4 KiB); the login
  /// manager's errors. Thread-safe.
  bool connectFor(CURI const& uri, CError const& failure);
  /// The shares connected by this mounter and not yet disconnected, oldest
  /// first (Windows: "\\srv\share"; POSIX: the remote given to addShare).
  /// Thread-safe.
  std::vector<String> getConnected() const;
  /// Disconnects every share this mounter connected, newest first, and
  /// forgets them; a failure is logged as a warning and the share forgotten
  /// all the same. Never throws. Thread-safe.
  void _deinit() noexcept;

private:
  struct Share {
    String remote;
    CURI mountPoint;  // POSIX only
  };

  bool connectShare(CURI const& uri, Share const& share, CError const& failure);
  void runHelper(std::vector<String> const& command, Share const& share, String const& user, String const& secret,
                 CError const* failure) const;

  mutable CMutex m_mutex;
  P<IFileSystemLoginManager> m_logins;
  std::vector<Share> m_shares;     // POSIX: configured
  std::vector<Share> m_connected;  // connected by this mounter
  std::vector<String> m_mountCommand;
  std::vector<String> m_unmountCommand;
};

}  // namespace qo

#endif  // QO_FS_CNETWORKAUTOMOUNTER_H

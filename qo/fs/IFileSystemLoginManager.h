// qo/fs/IFileSystemLoginManager.h - supplies credentials for network storage.
//
// An application sets one on the hub (CFileSystemHub::setLoginManager); file
// systems that reach servers (network shares, FTP) ask it for the user and
// secret to use for a URI's host and share. Returning false means "no
// credentials known": the file system then tries the process's own account.
//
//   String user, secret;
//   if (manager->getLogin(uri, user, secret)) connect(uri.getHost(), user, secret);
#ifndef QO_FS_IFILESYSTEMLOGINMANAGER_H
#define QO_FS_IFILESYSTEMLOGINMANAGER_H

#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/String.h"
#include "qo/fs/CURI.h"

namespace qo {

/// Source of credentials. Implementations must be thread-safe: any file
/// system may ask from any thread.
class QO_API IFileSystemLoginManager : public virtual IBase {
public:
  ~IFileSystemLoginManager() override;

  /// Credentials for the storage that uri lies on (its host, share or
  /// server). True with userName and secret set when known; false, leaving
  /// both unchanged, otherwise. May throw CError (for example when the user
  /// cancels a prompt).
  virtual bool getLogin(CURI const& uri, String& userName, String& secret) = 0;
  /// Tells the manager that the credentials it gave for uri were refused,
  /// so it can forget or ask again.
  virtual void onLoginFailed(CURI const& uri, String const& userName) = 0;
};

}  // namespace qo

#endif  // QO_FS_IFILESYSTEMLOGINMANAGER_H

// qo/fs/CFileSystemHub.h - one IFileSystem that reaches every registered kind
// of storage, chosen by the URI's scheme.
//
// Register a file system per scheme (lower case, as CURI stores schemes);
// every IFileSystem call is then routed to the file system of its URI's
// scheme. Failures of the hub itself are CFileSystemError problem 6
// (kUnservedURI), with a CError cause:
//   "The URI scheme is not supported."        property "uri"
//   "Objects are on different file systems."  properties "uri1", "uri2"
// (a move or copy across file systems is never attempted; copy through
// streams instead). Errors of the target file system pass through unchanged.
//
//   P<CFileSystemHub> hub = newP<CFileSystemHub>();
//   hub->registerFileSystem(u"file", localFs.get());
//   hub->createFolder(CURI(u"file:///tmp/x"), 0);   // -> localFs
//
// The map is guarded by the hub's mutex; the routed call itself runs outside
// it, so a slow call on one file system never blocks the others.
#ifndef QO_FS_CFILESYSTEMHUB_H
#define QO_FS_CFILESYSTEMHUB_H

#include <map>

#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CDelegatingFileSystemBase.h"
#include "qo/fs/IFileSystem.h"
#include "qo/fs/IFileSystemLoginManager.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Routes file-system calls by URI scheme. Thread-safe.
class QO_API CFileSystemHub : public CDelegatingFileSystemBase {
public:
  /// A hub with no file system registered.
  CFileSystemHub();
  ~CFileSystemHub() override;
  CFileSystemHub(CFileSystemHub const&) = delete;
  CFileSystemHub& operator=(CFileSystemHub const&) = delete;

  /// Routes scheme (compared exactly; CURI schemes are lower case) to fs,
  /// replacing an earlier registration; the hub keeps a reference. A null
  /// fs removes the scheme. Thread-safe.
  void registerFileSystem(String const& scheme, IFileSystem* fs);
  /// Stores the manager that supplies credentials for network access (may
  /// be null); the hub keeps a reference. Thread-safe.
  void setLoginManager(IFileSystemLoginManager* manager);
  /// The login manager last set, or null. Thread-safe.
  [[nodiscard]] P<IFileSystemLoginManager> getLoginManager() const;

  /// The file system registered for uri's scheme. Throws CFileSystemError
  /// problem 6 (kUnservedURI) whose cause is a CError "The URI scheme is not
  /// supported." (empty domain, code -1, property "uri" = uri.toString(true))
  /// when there is none. Thread-safe.
  P<IFileSystem> getFileSystem(CURI const& uri) override;

private:
  mutable CMutex m_mutex;
  std::map<String, P<IFileSystem>> m_fileSystems;
  P<IFileSystemLoginManager> m_loginManager;
};

}  // namespace qo

#endif  // QO_FS_CFILESYSTEMHUB_H

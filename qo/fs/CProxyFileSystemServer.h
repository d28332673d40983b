// qo/fs/CProxyFileSystemServer.h - serves an IFileSystem to other processes
// over the library's IPC (CIPCServer), for CProxyFileSystem clients.
//
// Each client connection is a session: its open streams, range locks,
// folder listings and background operations live in the server under
// numeric handles (see CProxyFileSystemMessage for the wire format). When
// the client goes away (it closed, crashed or was killed) the session's
// locks are released, its streams closed and its queued background
// operations dropped (each session runs them on its own "qo.bgOp" worker,
// which is told to stop; one already running finishes on its own, and the
// library's shutdown waits for it).
//
// Errors of the served file system travel whole to the client (class,
// message, domain, code, properties, cause). A request that cannot be read
// is answered with CIOError kind 5; the connection stays usable.
//
// Confinement: with setRoot(), every URI a client names is converted to the
// native path, resolved component by component (".", "..", symbolic links
// and junctions followed through the served file system's link targets) and
// refused with CFileSystemError kAccessDenied (3) unless the result lies in
// the resolved root. The served file system must then take "file" URIs of
// this machine. The check and the operation are two steps: a link changed
// in between by someone who may write inside the root is not seen, so
// confine clients only to folders whose links they cannot change. A policy (setPolicy) sees each operation with the client's
// user id (from the IPC layer) and may refuse it the same way.
//
//   P<CProxyFileSystemServer> server = newP<CProxyFileSystemServer>(newP<CLocalFileSystem>());
//   server->setRoot(CURI(u"file:///srv/data/"));
//   server->listen(u"qo-fsd");
//   ...
//   server->stop();
#ifndef QO_FS_CPROXYFILESYSTEMSERVER_H
#define QO_FS_CPROXYFILESYSTEMSERVER_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CProxyFileSystemMessage.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileSystem.h"
#include "qo/ipc/CIPCServer.h"

namespace qo {

/// The server side of the proxy file system. Setters before listen(); the
/// rest is thread-safe.
class QO_API CProxyFileSystemServer : public CBase {
public:
  /// Decides whether a client may do an operation.
  class QO_API IPolicy : public virtual IBase {
  public:
    ~IPolicy() override;
    /// True to allow operation op on uri (empty for operations on a
    /// handle) for the client whose user id is peerUserId (-1 when the
    /// transport cannot tell). Called on the client's connection thread.
    /// Thread-safe.
    virtual bool isAllowed(long long peerUserId, CProxyFileSystemMessage::Op op, CURI const& uri) = 0;
  };

  /// A server for fs (not null, else CInvalidArgError
  /// "CProxyFileSystemServer::CProxyFileSystemServer").
  explicit CProxyFileSystemServer(P<IFileSystem> const& fs);
  /// stop().
  ~CProxyFileSystemServer() override;
  CProxyFileSystemServer(CProxyFileSystemServer const&) = delete;
  CProxyFileSystemServer& operator=(CProxyFileSystemServer const&) = delete;

  /// Confines clients to the folder root (a "file" URI; empty: no
  /// confinement). Throws CFileSystemError when root cannot be resolved.
  /// Not thread-safe.
  void setRoot(CURI const& root);
  /// Asks policy before every operation (null: allow all). Not thread-safe.
  void setPolicy(P<IPolicy> const& policy);
  /// The IPC server, for its own settings (admitted users, connection
  /// limit) before listen(). Not thread-safe.
  [[nodiscard]] P<CIPCServer> const& getIPCServer() const noexcept { return m_ipc; }
  /// Serves on the local IPC endpoint name. Throws as CIPCServer::listen.
  /// Not thread-safe.
  void listen(String const& name);
  /// Stops serving: every session ends as if its client had gone.
  /// Idempotent. Thread-safe.
  void stop();
  /// The sessions (connected clients) being served now. Thread-safe.
  [[nodiscard]] int getSessionCount() const;

private:
  class CHandler;
  P<CHandler> m_handler;
  P<CIPCServer> m_ipc;
};

}  // namespace qo

#endif  // QO_FS_CPROXYFILESYSTEMSERVER_H

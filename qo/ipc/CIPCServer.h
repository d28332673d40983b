// qo/ipc/CIPCServer.h - serves requests of other processes on a named local
// endpoint or a TCP port.
//
// The server accepts on a "qo.ipc.accept" thread and serves each connection
// on its own "qo.ipc.conn" thread: it answers the client's hello, then reads
// request frames, hands each to the handler and writes the answer frame (a
// status byte, CIPCConnection::AnswerStatus, then the handler's bytes). A bad
// frame (too large, cut short, garbage) or a peer that goes away ends that
// connection only. Over the connection limit, from a user not admitted (by
// default only this process's user and the administrator are), or with
// another protocol version a client is refused in the hello with a clear
// error. Over TCP the peer's user is unknown: every client that reaches the
// port is admitted, so listen on a loopback address or check in the handler.
// stop() ends the accept and every blocked read and joins the threads;
// they are CThreads, so the library's shutdown waits for them too.
//
// A server and a client in a few lines:
//   class CUpper : public CBase, public IIPCRequestHandler {
//     void handleRequest(CIPCConnection&, std::vector<unsigned char> const& in,
//                        std::vector<unsigned char>& out) override {
//       for (unsigned char c : in) out.push_back(static_cast<unsigned char>(std::toupper(c)));
//     }
//   };
//   P<CIPCServer> server = newP<CIPCServer>(newP<CUpper>());
//   server->listen(u"upper");
//   ...
//   P<CIPCConnection> c = CIPCConnection::connect(u"upper", 5000);
//   std::vector<unsigned char> answer = c->call({'h', 'i'});   // "HI"
//   ...
//   server->stop();
#ifndef QO_IPC_CIPCSERVER_H
#define QO_IPC_CIPCSERVER_H

#include <atomic>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/ipc/CIPCConnection.h"
#include "qo/ipc/CIPCPressureSwitch.h"
#include "qo/ipc/IIPCRequestHandler.h"
#include "qo/thread/CMutex.h"

namespace qo {

namespace platform {
struct IPCListener;
}

/// A request/answer server. Setters before listen(); the rest is
/// thread-safe.
class QO_API CIPCServer : public CBase {
public:
  /// A server answering with handler (shared; not null, else
  /// CInvalidArgError).
  explicit CIPCServer(P<IIPCRequestHandler> const& handler);
  /// stop().
  ~CIPCServer() override;
  CIPCServer(CIPCServer const&) = delete;
  CIPCServer& operator=(CIPCServer const&) = delete;

  /// The most connections served at once (default 64); later clients are
  /// refused with the reason "too many connections". Not thread-safe.
  void setMaxConnections(int count);
  /// The largest request frame (default CIPCConnection::kDefaultMaxFrameSize).
  /// Not thread-safe.
  void setMaxFrameSize(int size);
  /// The application protocol version announced and required (default 1).
  /// Not thread-safe.
  void setProtocolVersion(int version);
  /// How long a new client may take to send its hello (default 5000 ms).
  /// Not thread-safe.
  void setHelloTimeout(int timeoutMs);
  /// Admit every user, not only this process's user and the administrator:
  /// the endpoint is opened to all (Windows: authenticated users join the
  /// pipe's access list; POSIX: the socket becomes 0666, which lets others
  /// in when listen() gets a full socket path in a folder they may enter,
  /// the user's own endpoint folder staying closed). Not thread-safe.
  void setAdmitAllUsers(bool admitAll);
  /// Every request enters gate first, waiting up to waitMs while it is
  /// under pressure; after that the client gets a "busy" answer. Null:
  /// no gate. Not thread-safe.
  void setPressureSwitch(P<CIPCPressureSwitch> const& gate, int waitMs);

  /// Listens on the local endpoint name and starts accepting. Throws
  /// CSocketError "Error listening on IPC endpoint." (properties "name",
  /// "api", "code", "sysErrorText") when the name is taken by a live server
  /// or the OS refuses; CBadStateError when already listening. Not
  /// thread-safe.
  void listen(String const& name);
  /// Listens on TCP host:port ("" = all IPv4 addresses, "::" = all IPv6;
  /// port 0 = a free one) and returns the port. Throws as listen(), with
  /// "host" and "port". Not thread-safe.
  int listenTCP(String const& host, int port);
  /// Stops accepting, closes every connection (blocked reads end) and joins
  /// all threads. Idempotent. Thread-safe.
  void stop();

  /// The connections being served now. Thread-safe.
  [[nodiscard]] int getConnectionCount() const;
  /// The connections that ended by an error (bad frame, lost peer, failed
  /// hello) so far. Thread-safe.
  [[nodiscard]] int getFailedConnectionCount() const;
  /// The error that ended the last failed connection, or null. Thread-safe.
  [[nodiscard]] P<CError> getLastConnectionError() const;

private:
  class CAcceptThread;
  class CConnectionThread;
  friend class CAcceptThread;
  friend class CConnectionThread;

  void startAccepting(platform::IPCListener* listener, CURI const& uri);
  void acceptLoop();
  void serve(P<CIPCConnection> const& connection);
  void reapFinished();

  P<IIPCRequestHandler> m_handler;
  int m_maxConnections = 64;
  int m_maxFrameSize = CIPCConnection::kDefaultMaxFrameSize;
  int m_protocolVersion = 1;
  int m_helloTimeoutMs = 5000;
  bool m_admitAllUsers = false;
  P<CIPCPressureSwitch> m_gate;
  int m_gateWaitMs = 0;

  platform::IPCListener* m_listener = nullptr;
  CURI m_uri;
  P<CAcceptThread> m_acceptThread;
  mutable CMutex m_mutex;  // the fields below
  std::vector<P<CConnectionThread>> m_connections;
  P<CError> m_lastError;
  int m_failed = 0;
  bool m_stopping = false;
  std::atomic<int> m_active{0};  // connections past accept and not refused
};

}  // namespace qo

#endif  // QO_IPC_CIPCSERVER_H

// qo/ipc/IIPCRequestHandler.h - what a CIPCServer does with each request.
//
// The server calls handleRequest on the connection's own thread for every
// request frame, so one handler serves many connections at once:
//   class CEcho : public CBase, public IIPCRequestHandler {
//     void handleRequest(CIPCConnection&, std::vector<unsigned char> const& request,
//                        std::vector<unsigned char>& answer) override { answer = request; }
//   };
#ifndef QO_IPC_IIPCREQUESTHANDLER_H
#define QO_IPC_IIPCREQUESTHANDLER_H

#include <vector>

#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

class CIPCConnection;

/// Answers requests of IPC clients. Implementations must be thread-safe.
class QO_API IIPCRequestHandler : public virtual IBase {
public:
  ~IIPCRequestHandler() override;
  /// Fills answer (empty on entry) for request, which came on connection.
  /// A CError (or std::exception) thrown here is sent to the client as a
  /// failed answer with its message; the connection stays open.
  /// Thread-safe.
  virtual void handleRequest(CIPCConnection& connection, std::vector<unsigned char> const& request,
                             std::vector<unsigned char>& answer) = 0;
  /// Called once on the connection's thread when a connection that was
  /// admitted ends (the client left, a bad frame, stop()), after its last
  /// request; a handler that keeps state per connection drops it here. The
  /// default does nothing. Must not throw. Thread-safe.
  virtual void connectionEnded(CIPCConnection& connection) noexcept { (void)connection; }
};

}  // namespace qo

#endif  // QO_IPC_IIPCREQUESTHANDLER_H

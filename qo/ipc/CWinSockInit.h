// qo/ipc/CWinSockInit.h - keeps the Windows socket library started while
// the process uses sockets.
//
// One process-wide instance (get()) starts Windows Sockets 2.2 (WSAStartup)
// when first asked for and stops it (WSACleanup) at library shutdown. On
// other systems sockets need no start-up and the instance does nothing.
// Every TCP operation of the library calls get() first:
//   CWinSockInit::get();
//
// Thread-safe.
#ifndef QO_IPC_CWINSOCKINIT_H
#define QO_IPC_CWINSOCKINIT_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"

namespace qo {

/// The started socket library. Thread-safe.
class QO_API CWinSockInit : public CBase {
public:
  /// Starts the socket library. Throws CSocketError "Error initializing
  /// Windows Sockets." (properties "api" = "WSAStartup", "code") when it
  /// cannot start.
  CWinSockInit();
  /// Stops the socket library again.
  ~CWinSockInit() override;
  CWinSockInit(CWinSockInit const&) = delete;
  CWinSockInit& operator=(CWinSockInit const&) = delete;
  /// The process-wide instance, created on first use. Throws as the
  /// constructor. Thread-safe.
  static P<CWinSockInit> const& get();
};

}  // namespace qo

#endif  // QO_IPC_CWINSOCKINIT_H

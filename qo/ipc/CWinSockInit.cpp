#include "qo/ipc/CWinSockInit.h"

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSocketError.h"
#include "qo/platform/IPCChannel.h"

namespace qo {

CWinSockInit::CWinSockInit() {
  char const* api = nullptr;
  if (platform::SysError e = platform::ipcNetworkStartup(api)) {
    throw CSocketError(u"Error initializing Windows Sockets.",
                       CProps()
                           .add(u"api", String::fromUTF8(api ? api : ""))
                           .addLong(u"code", e.code)
                           .add(u"sysErrorText", String::fromUTF8(e.text)));
  }
}

CWinSockInit::~CWinSockInit() { platform::ipcNetworkCleanup(); }

P<CWinSockInit> const& CWinSockInit::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CWinSockInit>::get(g_pInstanceSlot);
}

}  // namespace qo

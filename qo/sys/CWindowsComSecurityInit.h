// qo/sys/CWindowsComSecurityInit.h - the process's COM security, set once.
//
// CQoInit creates it right after CWindowsComInit: on Windows it calls
// CoInitializeSecurity (default authentication level, impersonation, no
// extra capabilities) so that COM calls to system services (WMI, the shell)
// are allowed to act for the caller. Security can be set only once per
// process and before COM marshals anything: when the application or a
// library did it first, the call answers RPC_E_TOO_LATE, which counts as
// initialized. On Linux there is no COM: the object exists so that the
// start order is the same everywhere, and does nothing.
//
//   if (!CWindowsComSecurityInit::get()->isInitialized()) logWarning(u"COM security not set");
//
// Thread-safe.
#ifndef QO_SYS_CWINDOWSCOMSECURITYINIT_H
#define QO_SYS_CWINDOWSCOMSECURITYINIT_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"

namespace qo {

/// The process's COM security. Thread-safe.
class QO_API CWindowsComSecurityInit : public CBase {
public:
  /// Sets COM security; never throws (see getResult). Needs COM on the
  /// calling thread: it obtains CWindowsComInit first.
  CWindowsComSecurityInit();
  ~CWindowsComSecurityInit() override;
  CWindowsComSecurityInit(CWindowsComSecurityInit const&) = delete;
  CWindowsComSecurityInit& operator=(CWindowsComSecurityInit const&) = delete;

  /// The process-wide instance, created on first call. Thread-safe.
  static P<CWindowsComSecurityInit> const& get();

  /// True when the process's COM security is set (now or before); false on
  /// Linux. Thread-safe.
  bool isInitialized() const noexcept;
  /// CoInitializeSecurity's HRESULT (0 on Linux). Thread-safe.
  long getResult() const noexcept { return m_result; }

private:
  bool m_available;
  long m_result;
};

}  // namespace qo

#endif  // QO_SYS_CWINDOWSCOMSECURITYINIT_H

#include "qo/sys/CWindowsComSecurityInit.h"

#include "qo/core/CSafeGlobalSlot.h"
#include "qo/platform/Com.h"
#include "qo/sys/CWindowsComInit.h"

namespace qo {

CWindowsComSecurityInit::CWindowsComSecurityInit()
    : m_available((static_cast<void>(CWindowsComInit::get()), platform::comAvailable())),
      m_result(platform::comInitSecurity()) {}

CWindowsComSecurityInit::~CWindowsComSecurityInit() = default;

P<CWindowsComSecurityInit> const& CWindowsComSecurityInit::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CWindowsComSecurityInit>::get(g_pInstanceSlot);
}

bool CWindowsComSecurityInit::isInitialized() const noexcept {
  return m_available && (m_result >= 0 || m_result == platform::kComSecurityTooLate);
}

}  // namespace qo

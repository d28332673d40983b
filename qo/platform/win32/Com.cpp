#include "qo/platform/Com.h"

#include <windows.h>
#include <objbase.h>

namespace qo::platform {

bool comAvailable() { return true; }

long comInitThread(bool& mustUninit) {
  HRESULT hr = CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  // S_OK and S_FALSE (already started on this thread) both need their
  // CoUninitialize; RPC_E_CHANGED_MODE does not.
  mustUninit = SUCCEEDED(hr);
  return static_cast<long>(hr);
}

void comUninitThread() { CoUninitialize(); }

long comInitSecurity() {
  return static_cast<long>(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                                RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
}

}  // namespace qo::platform

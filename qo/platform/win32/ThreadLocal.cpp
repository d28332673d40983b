#include "qo/platform/ThreadLocal.h"

#include <windows.h>

namespace qo::platform {

SysError tlsCreate(NativeTlsKey& key) {
  DWORD index = TlsAlloc();
  if (index == TLS_OUT_OF_INDEXES) return lastSysError();
  key.value = index;
  return {};
}

void tlsDestroy(NativeTlsKey key) { TlsFree(static_cast<DWORD>(key.value)); }

void* tlsGet(NativeTlsKey key) {
  // TlsGetValue clears the last error on success; callers must not see that.
  DWORD saved = GetLastError();
  void* value = TlsGetValue(static_cast<DWORD>(key.value));
  SetLastError(saved);
  return value;
}

SysError tlsSet(NativeTlsKey key, void* value) {
  if (!TlsSetValue(static_cast<DWORD>(key.value), value)) return lastSysError();
  return {};
}

}  // namespace qo::platform

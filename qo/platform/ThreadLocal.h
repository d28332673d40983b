// qo/platform/ThreadLocal.h - one pointer per thread under a key (internal,
// OS-free).
//
// TlsAlloc/TlsGetValue/TlsSetValue on Windows, pthread keys elsewhere. A new
// key reads null on every thread. Nothing is run when a thread ends; owners
// of per-thread objects release them themselves.
#ifndef QO_PLATFORM_THREADLOCAL_H
#define QO_PLATFORM_THREADLOCAL_H

#include <cstdint>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeTlsKey {
  std::uintptr_t value = 0;
};

/// Allocates a key; on failure returns the system error and leaves key alone.
SysError tlsCreate(NativeTlsKey& key);
void tlsDestroy(NativeTlsKey key);
void* tlsGet(NativeTlsKey key);  ///< Leaves the last system error unchanged.
SysError tlsSet(NativeTlsKey key, void* value);

}  // namespace qo::platform

#endif  // QO_PLATFORM_THREADLOCAL_H

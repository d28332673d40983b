// qo/platform/ThreadLocal.h - one pointer per thread under a key (internal,
// OS-free).
//
// TlsAlloc/TlsGetValue/TlsSetValue on Windows, pthread keys elsewhere. A new
// key reads null on every thread. A key may name a function that is called
// with a thread's non-null value when that thread ends, whoever started it
// (POSIX: the key's destructor; Windows: the library's DLL_THREAD_DETACH
// notification). The value is already cleared then; the function may store
// a new one, which is handed to it again (a few rounds at most). Not called
// for the thread that ends the process, nor after tlsDestroy.
#ifndef QO_PLATFORM_THREADLOCAL_H
#define QO_PLATFORM_THREADLOCAL_H

#include <cstdint>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeTlsKey {
  std::uintptr_t value = 0;
};

/// Called with a thread's value as that thread ends.
using TlsThreadExitFunc = void (*)(void* value);

/// Allocates a key; on failure returns the system error and leaves key
/// alone. onThreadExit (may be null) is called as described above.
SysError tlsCreate(NativeTlsKey& key, TlsThreadExitFunc onThreadExit = nullptr);
void tlsDestroy(NativeTlsKey key);
void* tlsGet(NativeTlsKey key);  ///< Leaves the last system error unchanged.
SysError tlsSet(NativeTlsKey key, void* value);

}  // namespace qo::platform

#endif  // QO_PLATFORM_THREADLOCAL_H

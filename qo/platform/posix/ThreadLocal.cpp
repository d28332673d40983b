#include "qo/platform/ThreadLocal.h"

#include <pthread.h>

namespace qo::platform {

static_assert(sizeof(pthread_key_t) <= sizeof(std::uintptr_t), "grow NativeTlsKey");

SysError tlsCreate(NativeTlsKey& key, TlsThreadExitFunc onThreadExit) {
  pthread_key_t k;
  int rc = pthread_key_create(&k, onThreadExit);
  if (rc != 0) return sysErrorOf(static_cast<std::uint32_t>(rc), "pthread_key_create");
  key.value = static_cast<std::uintptr_t>(k);
  return {};
}

void tlsDestroy(NativeTlsKey key) { pthread_key_delete(static_cast<pthread_key_t>(key.value)); }

void* tlsGet(NativeTlsKey key) { return pthread_getspecific(static_cast<pthread_key_t>(key.value)); }

SysError tlsSet(NativeTlsKey key, void* value) {
  int rc = pthread_setspecific(static_cast<pthread_key_t>(key.value), value);
  if (rc != 0) return sysErrorOf(static_cast<std::uint32_t>(rc), "pthread_setspecific");
  return {};
}

}  // namespace qo::platform

#include "qo/core/TRequireNewAlloc.h"

#include "qo/core/CError.h"
#include "qo/core/String.h"
#include "qo/core/TypeName.h"
#include "qo/platform/Debug.h"
#include "qo/platform/ThreadLocal.h"

#include <cstdlib>

namespace qo {

namespace {

// The flag is the slot's value itself (null = clear), so no per-thread
// object has to be allocated or freed.
void* const kFlagSet = reinterpret_cast<void*>(std::uintptr_t{1});

platform::NativeTlsKey const& flagKey() {
  static platform::NativeTlsKey const key = [] {
    platform::NativeTlsKey k;
    if (platform::tlsCreate(k)) {
      // Without the key no heap-only object could ever be built.
      platform::debugOutput("qo: no thread-local storage key for TRequireNewAlloc\n");
      std::abort();
    }
    return k;
  }();
  return key;
}

}  // namespace

void _CRequireNewAllocHelper::setAllocatedWithNew() { platform::tlsSet(flagKey(), kFlagSet); }

bool _CRequireNewAllocHelper::takeAllocatedWithNew() {
  platform::NativeTlsKey key = flagKey();
  if (platform::tlsGet(key) == nullptr) return false;
  platform::tlsSet(key, nullptr);
  return true;
}

void _CRequireNewAllocHelper::disposeGlobalAllocatedWithNew() { platform::tlsSet(flagKey(), nullptr); }

void _CRequireNewAllocHelper::throwNotAllocatedWithNew(std::type_info const& type) {
  throw CError(String(u"Objects of class ") + String::wstringFromUTF8WithLatin1Fallback(typeNameOf(type)) +
               u" must be allocated with new.");
}

}  // namespace qo

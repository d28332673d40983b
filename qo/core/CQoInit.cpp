#include "qo/core/CQoInit.h"

#include <clocale>
#include <cstring>

#include "qo/core/CSafeGlobalDisposer.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/platform/ErrorMode.h"

namespace qo {

CQoInit::CQoInit() {
  // TODO(#5): obtain the thread list first, so it exists before anything else.
  (void)CQoInitHelper::get();
}

CQoInit::~CQoInit() {
  // TODO(#5): stop the library's threads (30000 ms) and warn on the debugger
  // output when some do not end.
  CSafeGlobalSlot::disposeAll();
  CSafeGlobalDisposer::get().disposeAll();
}

CQoInit::CQoInitHelper::CQoInitHelper() {
  // Keep a locale the application chose; leave "C" for the user's own.
  char const* current = std::setlocale(LC_ALL, nullptr);
  if (current == nullptr || std::strcmp(current, "C") == 0) std::setlocale(LC_ALL, "");
  // TODO(#5): prepare the calling thread for the library's thread services.
  platform::suppressCriticalErrorDialogs();
  // TODO(#5): create the thread-local storage manager here.
}

CQoInit::CQoInitHelper::~CQoInitHelper() {
  // TODO(#5): release the calling thread's thread-local values.
}

P<CQoInit::CQoInitHelper> const& CQoInit::CQoInitHelper::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CQoInitHelper>::get(g_pInstanceSlot);
}

}  // namespace qo

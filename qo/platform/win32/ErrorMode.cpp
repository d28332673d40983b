#include "qo/platform/ErrorMode.h"

#include <windows.h>

namespace qo::platform {

void suppressCriticalErrorDialogs() {
  static_assert((SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX) == 0x8001, "error mode value");
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
}

}  // namespace qo::platform

#include "qo/platform/Com.h"

namespace qo::platform {

// No COM here: the callers' order of starting stays the same on every
// system, and these are its empty steps.
bool comAvailable() { return false; }

long comInitThread(bool& mustUninit) {
  mustUninit = false;
  return 0;
}

void comUninitThread() {}

long comInitSecurity() { return 0; }

}  // namespace qo::platform

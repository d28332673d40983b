#include "qo/platform/Yield.h"

#include <windows.h>

namespace qo::platform {

void sleepMillis(unsigned int millis) { SleepEx(millis, FALSE); }

void yieldThread(bool sleepOneMilli) { SleepEx(sleepOneMilli ? 1 : 0, FALSE); }

}  // namespace qo::platform

#include "qo/thread/threadYield.h"

#include "qo/platform/Yield.h"

namespace qo {

void threadYield(bool sleepOneMilli) { platform::yieldThread(sleepOneMilli); }

}  // namespace qo

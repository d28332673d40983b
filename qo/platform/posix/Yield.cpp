#include "qo/platform/Yield.h"

#include <cerrno>

#include <sched.h>
#include <time.h>

namespace qo::platform {

void sleepMillis(unsigned int millis) {
  timespec left{static_cast<time_t>(millis / 1000), static_cast<long>(millis % 1000) * 1000000L};
  // Resume after a signal so the sleep lasts as long as asked.
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

void yieldThread(bool sleepOneMilli) {
  if (sleepOneMilli)
    sleepMillis(1);
  else
    sched_yield();
}

}  // namespace qo::platform

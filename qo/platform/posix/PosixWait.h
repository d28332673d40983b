// qo/platform/posix/PosixWait.h - helpers shared by the POSIX sources of
// the waiting services (Thread, Event, Semaphore); internal.
//
// Timed waits use condition variables on CLOCK_MONOTONIC, so a change of the
// wall clock neither cuts nor stretches a timeout.
#ifndef QO_PLATFORM_POSIX_POSIXWAIT_H
#define QO_PLATFORM_POSIX_POSIXWAIT_H

#include <cstdint>

#include <pthread.h>
#include <time.h>

#include "qo/platform/LastError.h"

namespace qo::platform::posixwait {

/// The error for an errno-style result code of the call api.
inline SysError fromCode(int code, char const* api) { return sysErrorOf(static_cast<std::uint32_t>(code), api); }

/// Initialises cond to measure timeouts on CLOCK_MONOTONIC.
inline int initMonotonicCond(pthread_cond_t& cond) {
  pthread_condattr_t attr;
  pthread_condattr_init(&attr);
  pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
  int rc = pthread_cond_init(&cond, &attr);
  pthread_condattr_destroy(&attr);
  return rc;
}

/// The CLOCK_MONOTONIC time millis (>= 0) from now, for pthread_cond_timedwait.
inline timespec deadlineAfter(int millis) {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  long long nanos = static_cast<long long>(now.tv_nsec) + static_cast<long long>(millis % 1000) * 1000000LL;
  timespec at;
  at.tv_sec = now.tv_sec + millis / 1000 + static_cast<time_t>(nanos / 1000000000LL);
  at.tv_nsec = static_cast<long>(nanos % 1000000000LL);
  return at;
}

}  // namespace qo::platform::posixwait

#endif  // QO_PLATFORM_POSIX_POSIXWAIT_H

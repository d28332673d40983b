// qo/thread/threadYield.h - give up the processor for a moment.
#ifndef QO_THREAD_THREADYIELD_H
#define QO_THREAD_THREADYIELD_H

#include "qo/core/Export.h"

namespace qo {

/// sleepOneMilli true: sleep about one millisecond (SleepEx(1) on Windows);
/// false: give up the rest of the time slice (SleepEx(0) / sched_yield).
/// Used by spin-waits that must let the awaited thread run. Thread-safe.
QO_API void threadYield(bool sleepOneMilli);

}  // namespace qo

#endif  // QO_THREAD_THREADYIELD_H

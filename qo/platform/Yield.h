// qo/platform/Yield.h - give up the processor (internal, OS-free).
#ifndef QO_PLATFORM_YIELD_H
#define QO_PLATFORM_YIELD_H

namespace qo::platform {

/// sleepOneMilli true: sleep about one millisecond (SleepEx(1, FALSE) /
/// nanosleep); false: give up the rest of the time slice (SleepEx(0, FALSE) /
/// sched_yield).
void yieldThread(bool sleepOneMilli);

/// Sleeps for the given milliseconds, not alertable.
void sleepMillis(unsigned int millis);

}  // namespace qo::platform

#endif  // QO_PLATFORM_YIELD_H

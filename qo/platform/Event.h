// qo/platform/Event.h - manual- and auto-reset events (internal, OS-free).
//
// Windows: CreateEventW, SetEvent, ResetEvent, WaitForSingleObject. POSIX: a
// mutex, a condition variable on CLOCK_MONOTONIC (timed waits do not follow
// changes of the wall clock) and a state flag. A manual-reset event stays set
// until reset and releases every waiter; an auto-reset event releases one
// waiter and resets itself, and a successful wait (also one with timeout 0)
// consumes the state.
//
//   NativeEvent* e; if (SysError err = eventCreate(true, false, e)) ...;
//   eventSet(e); bool set; eventWait(e, -1, set); eventDestroy(e);
//
// The functions never throw. Thread-safe on one event, except eventDestroy,
// which must not race with the others.
#ifndef QO_PLATFORM_EVENT_H
#define QO_PLATFORM_EVENT_H

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeEvent;

/// A new event; on failure event is null.
SysError eventCreate(bool manualReset, bool initialState, NativeEvent*& event);
/// Frees the event. Null does nothing. No thread may wait on it.
void eventDestroy(NativeEvent* event);
SysError eventSet(NativeEvent* event);
SysError eventReset(NativeEvent* event);
/// Waits until the event is set or timeoutMillis passed (-1: no limit, 0:
/// just test); signalled tells which.
SysError eventWait(NativeEvent* event, int timeoutMillis, bool& signalled);
/// The OS object: the HANDLE on Windows, the event's own address on POSIX.
void* eventNativeHandle(NativeEvent* event);

}  // namespace qo::platform

#endif  // QO_PLATFORM_EVENT_H

// qo/platform/Semaphore.h - counting semaphores, unnamed or named
// (internal, OS-free).
//
// Windows: CreateSemaphoreW, OpenSemaphoreW, ReleaseSemaphore,
// WaitForSingleObject. POSIX: an unnamed semaphore is a counter under a mutex
// and a CLOCK_MONOTONIC condition variable; a named one is sem_open's, shared
// between processes. POSIX names are "/" followed by the given name with
// every '/' and '\' turned into '_'; they outlive their last user until
// semaphoreUnlink, while a Windows name goes with its last handle. A named
// POSIX semaphore checks its maximum only in the process that created it,
// and its timed waits follow the wall clock (sem_timedwait).
//
//   NativeSemaphore* s; bool created;
//   semaphoreCreate(nullptr, 1, 1, s, created);
//   bool acquired; semaphoreWait(s, -1, acquired); semaphoreRelease(s);
//   semaphoreClose(s);
//
// The functions never throw. Thread-safe on one semaphore, except
// semaphoreClose, which must not race with the others.
#ifndef QO_PLATFORM_SEMAPHORE_H
#define QO_PLATFORM_SEMAPHORE_H

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeSemaphore;

/// Creates a semaphore holding initialValue permits, at most maxValue
/// (1 .. 0x7fffffff). With a non-empty UTF-8 name an existing semaphore of
/// that name is opened instead (its values unchanged) and created is false.
SysError semaphoreCreate(char const* utf8Name, unsigned initialValue, unsigned maxValue, NativeSemaphore*& semaphore,
                         bool& created);
/// Opens the existing named semaphore; fails when there is none.
SysError semaphoreOpen(char const* utf8Name, NativeSemaphore*& semaphore);
/// Gives up the semaphore. Null does nothing. No thread may wait on it.
void semaphoreClose(NativeSemaphore* semaphore);
/// Adds one permit; more than the maximum fails (ERROR_TOO_MANY_POSTS /
/// EOVERFLOW) and changes nothing.
SysError semaphoreRelease(NativeSemaphore* semaphore);
/// Takes one permit, waiting up to timeoutMillis (-1: no limit, 0: just
/// try); acquired tells whether it was taken.
SysError semaphoreWait(NativeSemaphore* semaphore, int timeoutMillis, bool& acquired);
/// POSIX: removes the name (sem_unlink); current users keep the semaphore.
/// Windows: nothing to do.
void semaphoreUnlink(char const* utf8Name);

}  // namespace qo::platform

#endif  // QO_PLATFORM_SEMAPHORE_H

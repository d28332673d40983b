// qo/platform/IPCSemaphore.h - named counting semaphores shared between
// processes, whose units come back when a holder dies (internal, OS-free).
//
// POSIX: a folder "<local IPC folder>/<name>.sem" with one file per unit; a
// unit is held by an exclusive flock on its file, which the kernel drops
// when the holder's process ends in any way (SIGKILL included). Windows:
// CreateSemaphoreW with the name "qo.ipc.sem.<name>"; there a unit taken by
// a process that dies stays taken (the kernel object cannot tell).
//
//   IPCSemaphore* s; char const* api;
//   ipcSemaphoreOpen("jobs", 4, s, api);
//   bool taken; ipcSemaphoreTake(s, -1, taken, api); ... ipcSemaphoreGive(s, api);
//   ipcSemaphoreClose(s);
//
// The functions never throw. Take and Give are thread-safe on one object.
#ifndef QO_PLATFORM_IPCSEMAPHORE_H
#define QO_PLATFORM_IPCSEMAPHORE_H

#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct IPCSemaphore;

/// Opens the semaphore name (no '/' or '\'), creating it with count units
/// (1 .. 1024) when it does not exist; an existing one keeps its count.
SysError ipcSemaphoreOpen(std::string const& name, int count, IPCSemaphore*& semaphore, char const*& api);
/// Takes a unit, waiting up to timeoutMs (-1: no limit, 0: only try).
SysError ipcSemaphoreTake(IPCSemaphore* semaphore, int timeoutMs, bool& taken, char const*& api);
/// Returns a unit this process took through this object; none held fails
/// (EOVERFLOW / ERROR_TOO_MANY_POSTS).
SysError ipcSemaphoreGive(IPCSemaphore* semaphore, char const*& api);
/// Closes the object; units still held go back. Null does nothing.
void ipcSemaphoreClose(IPCSemaphore* semaphore);

}  // namespace qo::platform

#endif  // QO_PLATFORM_IPCSEMAPHORE_H

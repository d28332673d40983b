// qo/platform/Thread.h - OS threads: start, wait, close, ids, names
// (internal, OS-free).
//
// Windows: _beginthreadex, WaitForSingleObject, CloseHandle, OpenThread,
// TerminateThread, SetThreadDescription (looked up at run time; absent before
// Windows 10 1607) and, only while a debugger is attached, the debugger's
// thread-naming exception. POSIX: pthreads; thread ids are the kernel's
// thread ids (gettid on Linux), so they match what debuggers and /proc show.
//
// A ThreadHandle has exactly one owner, who ends it with threadClose()
// (CloseHandle; on POSIX the thread is detached unless it was waited for).
// threadWait, threadIsRunning and threadClose must not run concurrently on
// one handle with threadClose.
//
//   ThreadHandle h; std::uint64_t id; int crtErrno;
//   if (SysError e = threadStart(&body, arg, h, id, crtErrno)) ...;
//   threadWait(h, -1, finished);
//   threadClose(h);
//
// The functions never throw.
#ifndef QO_PLATFORM_THREAD_H
#define QO_PLATFORM_THREAD_H

#include <cstdint>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct NativeThread;
/// Opaque owner of an OS thread; null when none.
using ThreadHandle = NativeThread*;

/// A thread body. The Windows x64 calling convention makes this the type
/// _beginthreadex expects.
using ThreadFunc = unsigned (*)(void* arg);

/// Starts func(arg) on a new thread with the default stack size. On success
/// handle and id are set (id is known before this returns) and the error is
/// empty. On failure handle is null and crtErrno holds the C runtime's errno
/// (Windows; 0 on POSIX, where the result itself is the errno code).
SysError threadStart(ThreadFunc func, void* arg, ThreadHandle& handle, std::uint64_t& id, int& crtErrno);

/// Waits until the thread has ended or timeoutMillis passed (-1: no limit,
/// 0: just test). finished tells which. After a successful wait with
/// finished true, the thread has run its last instruction.
SysError threadWait(ThreadHandle handle, int timeoutMillis, bool& finished);

/// True while the thread has not ended (a zero-timeout wait). A failing test
/// counts as ended.
bool threadIsRunning(ThreadHandle handle);

/// Gives up the handle; the thread itself runs on. Null does nothing.
void threadClose(ThreadHandle handle);

/// The calling thread's id (never 0).
std::uint64_t threadCurrentId();

/// Whether a thread of this process with that id exists and has not ended.
/// An id that names no thread gives false without an error.
SysError threadIsAliveById(std::uint64_t id, bool& alive);

/// Ends the thread with that id at once with exitCode (TerminateThread).
/// POSIX has no safe way to end another thread and always answers with the
/// error ENOTSUP.
SysError threadKillById(std::uint64_t id, int exitCode);

/// Publishes a UTF-8 name for the thread with that id to debuggers and
/// system tools. Best effort: a thread that is gone, or an OS without the
/// facility, is ignored. POSIX keeps at most 15 bytes (cut at a character
/// boundary); Linux names other threads through /proc/self/task/<id>/comm.
void threadSetName(std::uint64_t id, char const* utf8Name);

}  // namespace qo::platform

#endif  // QO_PLATFORM_THREAD_H

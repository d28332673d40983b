// qo/platform/Watchdog.h - what the crash watchdog and the process it
// watches need from the OS beyond IPC and minidumps (internal, OS-free).
//
// The watched process lets the watchdog inspect it (watchdogAllowTracer),
// finds the watchdog program beside the library (watchdogLibraryPath), and
// the watchdog learns whether the watched process still lives
// (watchdogProcessAlive).
// Windows: GetModuleHandleExW and GetModuleFileNameW, OpenProcess and
// GetExitCodeProcess. POSIX: prctl(PR_SET_PTRACER), dladdr, /proc/<pid>/stat.
//
//   std::u16string lib;
//   if (!watchdogLibraryPath(lib)) ... the folder of lib holds qo-watchdog
//
// The functions never throw. Thread-safe.
#ifndef QO_PLATFORM_WATCHDOG_H
#define QO_PLATFORM_WATCHDOG_H

#include <cstdint>
#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// Lets process processId trace this one. POSIX: prctl(PR_SET_PTRACER),
/// needed where Yama's ptrace_scope admits only ancestors as tracers; a
/// kernel without Yama needs nothing and answers no error. Windows: the
/// same user may open the process already; nothing to do.
SysError watchdogAllowTracer(std::uint64_t processId);

/// The absolute path of the library's own shared library (qo.dll,
/// libqo.so...), or of the program when the library is linked statically.
SysError watchdogLibraryPath(std::u16string& path);

/// False once processId has ended (a POSIX zombie counts as ended) or when
/// there is no such process.
bool watchdogProcessAlive(std::uint64_t processId);

}  // namespace qo::platform

#endif  // QO_PLATFORM_WATCHDOG_H

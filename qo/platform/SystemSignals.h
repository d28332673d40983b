// qo/platform/SystemSignals.h - the process's notices from the system:
// interrupt, terminate, hang-up, logoff, shutdown, session lock, suspend,
// device changes (internal, OS-free).
//
// Windows: SetConsoleCtrlHandler, and a hidden top-level window (class
// kMessageWindowClass; message-only windows miss broadcasts) whose message
// loop runs in systemSignalsRun: WM_QUERYENDSESSION / WM_ENDSESSION,
// WM_POWERBROADCAST, WM_WTSSESSION_CHANGE (WTSRegisterSessionNotification),
// WM_DEVICECHANGE. POSIX: sigaction for SIGINT, SIGTERM and SIGHUP with a
// handler that only writes the signal's number into a pipe (the self-pipe
// trick); systemSignalsRun reads the pipe. POSIX has no portable source for
// the other kinds.
//
// Take-over: while systemSignalsSetTakeOver(true) is in force, interrupt,
// terminate and hang-up are consumed and reported; otherwise what was there
// before applies (POSIX: the previous disposition, e.g. the default
// termination; Windows: the next console handler). A previous POSIX
// handler function is always called as well.
//
//   SystemSignalsHandle h = nullptr;
//   if (!systemSignalsInstall(h)) {
//     systemSignalsSetTakeOver(h, true);
//     std::thread t([&] { systemSignalsRun(h, &sink, ctx); });   // until stopped
//     ...
//     systemSignalsStop(h); t.join(); systemSignalsUninstall(h);
//   }
//
// Never throws. One handle at a time per process.
#ifndef QO_PLATFORM_SYSTEMSIGNALS_H
#define QO_PLATFORM_SYSTEMSIGNALS_H

#include "qo/platform/LastError.h"

namespace qo::platform {

enum class SystemSignal {
  Interrupt,
  Terminate,
  HangUp,
  Logoff,
  Shutdown,
  SessionLock,
  SessionUnlock,
  Suspend,
  Resume,
  PowerChange,
  DeviceArrival,
  DeviceRemoval,
};

/// The window class of the hidden window (Windows).
constexpr char16_t kMessageWindowClass[] = u"qo.globalMessages";

struct NativeSystemSignals;
/// Opaque owner of the installed hooks; null when none.
using SystemSignalsHandle = NativeSystemSignals*;
/// Called on the thread in systemSignalsRun, once per notice.
using SystemSignalSink = void (*)(void* context, SystemSignal signal);

/// Installs the hooks (nothing is reported until systemSignalsRun runs;
/// POSIX signals that arrive before are kept in the pipe).
SysError systemSignalsInstall(SystemSignalsHandle& handle);
/// Whether interrupt, terminate and hang-up are consumed (see the top).
/// Safe from any thread.
void systemSignalsSetTakeOver(SystemSignalsHandle handle, bool takeOver);
/// Delivers notices to sink on the calling thread until systemSignalsStop.
/// Windows: the hidden window lives on this thread for that time.
SysError systemSignalsRun(SystemSignalsHandle handle, SystemSignalSink sink, void* context);
/// Waits up to timeoutMillis (-1: no limit) until systemSignalsRun is
/// receiving (Windows: its window exists) or has failed; true when it did.
bool systemSignalsWaitReady(SystemSignalsHandle handle, int timeoutMillis);
/// True while systemSignalsRun has its window (Windows with a desktop;
/// never on POSIX). Without it only the console events come.
bool systemSignalsHaveWindow(SystemSignalsHandle handle);
/// Makes systemSignalsRun return (also when it has not started yet: it
/// then returns at once). Each stop ends one run, which consumes it; a
/// later run starts unstopped. Safe from any thread.
void systemSignalsStop(SystemSignalsHandle handle);
/// Restores what was there before and frees the handle; systemSignalsRun
/// must have returned. Null does nothing.
void systemSignalsUninstall(SystemSignalsHandle handle);

}  // namespace qo::platform

#endif  // QO_PLATFORM_SYSTEMSIGNALS_H

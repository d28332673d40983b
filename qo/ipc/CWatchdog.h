// qo/ipc/CWatchdog.h - the crash watchdog as the watched process sees it.
//
// The watchdog is the helper program qo-watchdog, shipped beside the
// library (qo.dll / libqo.so; getDefaultProgramPath). CWatchdog starts it
// as a child process and talks to it over two IPC connections with the
// commands of CWatchdogCommand: one kept idle for the crash, one for
// heartbeats.
//
// Crashes: CWatchdog is a dump writer for CCrashHandler
// (startForCrashHandler sets it). On a crash the handler's thread sends
// the crashing thread's id and context (on Windows also the exception
// pointers' address) and waits for the watchdog, which writes the minidump
// from outside with every thread's stack (Linux: ptrace; Windows:
// MiniDumpWriteDump), so the dump is complete even when the crash broke the
// heap. When the watchdog does not answer, the handler writes the dump from
// inside the process as it does without a watchdog.
//
// Hangs: with a hang timeout, the watchdog expects heartbeat() at least that
// often once the first heartbeat came. A process silent for longer gets a
// hang report and goes on running: a minidump of all threads,
// "hang-<T>-minidump.mdmp" in the crash folder (T as in crash files), and a
// warning in the watchdog's log "watchdog-log.xml" there. One report per
// silence; the next heartbeat re-arms it.
//
// Linux: the process lets the watchdog trace it (prctl(PR_SET_PTRACER)),
// which Yama's ptrace_scope requires for a tracer that is not an ancestor.
//
//   P<CCrashHandler> handler = newP<CCrashHandler>(folder, u"App", logPath, true);
//   P<CWatchdog> watchdog = CWatchdog::startForCrashHandler(handler.get(), folder.toString(), 30000);
//   CCrashManager::get()->setGlobalHandler(handler.get());
//   CCrashManager::get()->initHook();
//   ... in the main loop: if (watchdog) watchdog->heartbeat();
#ifndef QO_IPC_CWATCHDOG_H
#define QO_IPC_CWATCHDOG_H

#include <atomic>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/ipc/CIPCConnection.h"
#include "qo/log/ICrashDumpWriter.h"
#include "qo/thread/CMutex.h"

namespace qo {

class CCrashHandler;
class CProcess;

/// A running watchdog and the connections to it. Thread-safe.
class QO_API CWatchdog : public CBase, public ICrashDumpWriter {
public:
  /// How long a crash report waits for the watchdog's dump, in ms.
  static constexpr int kDumpTimeoutMs = 60000;
  /// How long stop() waits for the program to end, in ms.
  static constexpr int kStopWaitMs = 5000;

  /// "qo-watchdog" (Windows "qo-watchdog.exe") in the folder of the
  /// library's shared library. Throws CSystemError (api "dladdr" /
  /// "GetModuleHandleExW") when that folder cannot be found. Thread-safe.
  static String getDefaultProgramPath();

  /// Starts programPath (empty: getDefaultProgramPath()) for this process
  /// and connects to it within timeoutMs. crashFolder receives hang reports
  /// and the watchdog's log; hangTimeoutMs (-1: none) is the longest
  /// silence between heartbeats. Throws CSystemError when the program
  /// cannot be started, CSocketError "The watchdog did not answer." (with
  /// "program" and "timeoutMs") when it ends or does not listen in time, and
  /// what the IPC throws.
  CWatchdog(String const& programPath, String const& crashFolder, int hangTimeoutMs, int timeoutMs = 10000);
  /// stop().
  ~CWatchdog() override;
  CWatchdog(CWatchdog const&) = delete;
  CWatchdog& operator=(CWatchdog const&) = delete;

  /// Starts a watchdog for handler and makes it the handler's dump writer.
  /// When it cannot start, logs the error with the summary "Error
  /// initializing watchdog for crash handler." and returns null: the
  /// handler then writes dumps from inside the process. Never throws for a
  /// watchdog that fails to start. Thread-safe.
  static P<CWatchdog> startForCrashHandler(CCrashHandler* handler, String const& crashFolder, int hangTimeoutMs,
                                           String const& programPath = String());

  /// Tells the watchdog the process is alive. Throws what the IPC throws
  /// (CIOError / CSocketError) when the watchdog is gone. Thread-safe.
  void heartbeat();
  /// Ends the watchdog (it exits) and closes the connections, waiting up to
  /// kStopWaitMs for the program to end. Idempotent; never throws.
  /// Thread-safe.
  void stop() noexcept;
  /// The watchdog's process id. Thread-safe.
  [[nodiscard]] unsigned long long getProcessId() const;

  /// Crash path: has the watchdog write the dump of info to path and
  /// waits for it (kDumpTimeoutMs at most). Never throws or allocates.
  bool writeCrashDump(CCrashInfo const& info, wchar_t const* path) noexcept override;

private:
  static constexpr int kFrameCapacity = 32 * 1024;

  P<CProcess> m_process;
  unsigned long long m_processId = 0;
  P<CIPCConnection> m_crashConnection;
  P<CIPCConnection> m_heartbeatConnection;
  CMutex m_heartbeatMutex;
  std::atomic<bool> m_stopped{false};
  std::atomic<bool> m_crashing{false};
  unsigned char m_frame[kFrameCapacity];
};

}  // namespace qo

#endif  // QO_IPC_CWATCHDOG_H

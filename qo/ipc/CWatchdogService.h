// qo/ipc/CWatchdogService.h - the inside of the crash watchdog program
// qo-watchdog (see CWatchdog for the side of the watched process).
//
// run() listens on a local IPC endpoint for the watched process (only that
// process, of this user, is served) and answers the commands of
// CWatchdogCommand on the server's threads:
//   hello      the crash folder, the log path and the hang timeout;
//   heartbeat  the process is alive;
//   crash      writes the minidump of the crashed process from outside,
//              with every thread, to the given path, then answers;
//   stop       ends run().
// Meanwhile run()'s own loop checks for hangs: a process silent longer than
// the hang timeout (counted from its last heartbeat, once one came) gets a
// hang report and is not stopped: a minidump of all threads,
// "hang-<T>-minidump.mdmp" in the crash folder (T: seconds since 1970,
// 10 digits; "-<n>" added for the n-th report of a run), and a warning entry
// in the XML log at the hello's log path. run() returns when told to stop,
// when the watched process has ended, or when no hello came within 30 s.
//
//   return CWatchdogService::run(u"qo.watchdog.4711.0", 4711);
#ifndef QO_IPC_CWATCHDOGSERVICE_H
#define QO_IPC_CWATCHDOGSERVICE_H

#include <chrono>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/ipc/IIPCRequestHandler.h"
#include "qo/log/CXMLLog.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CSignal.h"

namespace qo {

/// The watchdog's state and command handler. Thread-safe.
class QO_API CWatchdogService : public CBase, public IIPCRequestHandler {
public:
  /// Serves the watched process processId on endpoint until it is done (see
  /// above). Returns 0, or 3 when the endpoint cannot be opened (the error
  /// goes to stderr). Thread-safe.
  static int run(String const& endpoint, long long processId);

  /// A service for processId.
  explicit CWatchdogService(long long processId);
  ~CWatchdogService() override;
  CWatchdogService(CWatchdogService const&) = delete;
  CWatchdogService& operator=(CWatchdogService const&) = delete;

  /// Answers one command (CWatchdogCommand). Throws CIOError for a garbled
  /// command and CError for a hello from another process. Thread-safe.
  void handleRequest(CIPCConnection& connection, std::vector<unsigned char> const& request,
                     std::vector<unsigned char>& answer) override;
  /// Waits up to millis for the stop command; true once it came.
  /// Thread-safe.
  bool waitForStop(int millis);
  /// Whether the watched process has said hello. Thread-safe.
  [[nodiscard]] bool isHelloSeen() const;
  /// Writes a hang report when the process has been silent too long; one
  /// per silence. Never throws (failures go to stderr and the log). Not
  /// thread-safe: one caller (run()'s loop).
  void checkHang();
  /// Closes the log, when one was opened. Never throws (a failure goes to
  /// stderr). Not thread-safe.
  void closeLog();

private:
  using Clock = std::chrono::steady_clock;

  long long const m_processId;
  CSignal m_stop;
  // One dump at a time: a process can be traced by one tracer only, and a
  // crash may come while a hang report is being written.
  CMutex m_dumpMutex;
  mutable CMutex m_mutex;  // the fields below
  bool m_helloSeen = false;
  int m_hangTimeoutMs = -1;
  String m_crashFolder;
  String m_logPath;
  Clock::time_point m_lastBeat;
  bool m_beating = false;
  bool m_hangReported = false;
  // checkHang's own.
  int m_hangReports = 0;
  P<CXMLLog> m_log;
};

}  // namespace qo

#endif  // QO_IPC_CWATCHDOGSERVICE_H

#include "qo/ipc/CWatchdog.h"

#include <atomic>
#include <string>
#include <vector>

#include "qo/core/CProps.h"
#include "qo/core/CSocketError.h"
#include "qo/core/CSystemError.h"
#include "qo/ipc/CWatchdogCommand.h"
#include "qo/log/CCrashHandler.h"
#include "qo/log/CCrashInfo.h"
#include "qo/log/logFunctions.h"
#include "qo/platform/Crash.h"
#include "qo/platform/Watchdog.h"
#include "qo/sys/CProcess.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

std::atomic<int> g_endpointCounter{0};

// How long one connection attempt waits before checking that the watchdog
// still runs.
constexpr int kConnectSliceMs = 200;

void helloOn(CIPCConnection& connection, String const& crashFolder, int hangTimeoutMs) {
  CWatchdogCommand hello;
  hello.kind = CWatchdogCommand::kHello;
  hello.processId = static_cast<long long>(CProcess::getCurrentID());
  hello.hangTimeoutMs = hangTimeoutMs;
  hello.crashFolder = crashFolder;
  hello.logPath = crashFolder;
  if (!hello.logPath.isEmpty() && !hello.logPath.EndsWith(u"/") && !hello.logPath.EndsWith(u"\\")) {
    hello.logPath += u"/";
  }
  hello.logPath += u"watchdog-log.xml";
  (void)connection.call(hello.toBytes(), CWatchdogCommand::kMaxFrameSize);
}

}  // namespace

String CWatchdog::getDefaultProgramPath() {
  std::u16string library;
  if (platform::SysError const e = platform::watchdogLibraryPath(library)) {
    throw CSystemError(u"Error finding the library's folder.", u"CWatchdog::getDefaultProgramPath",
                       u"GetModuleHandleExW", e);
  }
  std::size_t const cut = library.find_last_of(u"/\\");
  String path(library.substr(0, cut == std::u16string::npos ? 0 : cut + 1));
#ifdef _WIN32
  path += u"qo-watchdog.exe";
#else
  path += u"qo-watchdog";
#endif
  return path;
}

CWatchdog::CWatchdog(String const& programPath, String const& crashFolder, int hangTimeoutMs, int timeoutMs) {
  String const program = programPath.isEmpty() ? getDefaultProgramPath() : programPath;
  String const endpoint = String::fromUTF8("qo.watchdog." + std::to_string(CProcess::getCurrentID()) + "." +
                                           std::to_string(g_endpointCounter.fetch_add(1)));
  m_process = newP<CProcess>(program, std::vector<String>{u"--endpoint", endpoint, u"--pid",
                                                          String::fromUTF8(std::to_string(CProcess::getCurrentID()))});
  m_process->start();
  m_processId = m_process->getID();
  try {
    if (platform::SysError const e = platform::watchdogAllowTracer(m_processId)) {
      throw CSystemError(u"Error letting the watchdog inspect this process.", u"CWatchdog::CWatchdog",
                         u"prctl", e);
    }
    // The watchdog listens soon after it starts; a program that ends
    // instead (not a watchdog, or it failed) is noticed at once.
    int waited = 0;
    while (!m_crashConnection) {
      try {
        m_crashConnection = CIPCConnection::connect(endpoint, kConnectSliceMs, CWatchdogCommand::kProtocolVersion);
      } catch (CSocketError const&) {
        waited += kConnectSliceMs;
        if (m_process->wait(0) || (timeoutMs >= 0 && waited >= timeoutMs)) {
          throw CSocketError(u"The watchdog did not answer.",
                             CProps().add(u"program", program).addLong(u"timeoutMs", timeoutMs));
        }
      }
    }
    helloOn(*m_crashConnection, crashFolder, hangTimeoutMs);
    m_heartbeatConnection = CIPCConnection::connect(endpoint, timeoutMs, CWatchdogCommand::kProtocolVersion);
    helloOn(*m_heartbeatConnection, crashFolder, hangTimeoutMs);
  } catch (...) {
    try {
      m_process->terminate();
      (void)m_process->wait(-1);
    } catch (CError const&) {
      // Ended already: nothing more to do.
    }
    stop();
    throw;
  }
}

CWatchdog::~CWatchdog() { stop(); }

P<CWatchdog> CWatchdog::startForCrashHandler(CCrashHandler* handler, String const& crashFolder, int hangTimeoutMs,
                                             String const& programPath) {
  try {
    P<CWatchdog> watchdog = newP<CWatchdog>(programPath, crashFolder, hangTimeoutMs);
    if (handler != nullptr) handler->setDumpWriter(watchdog.get());
    return watchdog;
  } catch (std::exception const& e) {
    logError(e, u"Error initializing watchdog for crash handler.", String());
    return P<CWatchdog>();
  }
}

void CWatchdog::heartbeat() {
  CMutexLock lock(m_heartbeatMutex);
  CWatchdogCommand beat;
  beat.kind = CWatchdogCommand::kHeartbeat;
  (void)m_heartbeatConnection->call(beat.toBytes(), CWatchdogCommand::kMaxFrameSize);
}

void CWatchdog::stop() noexcept {
  if (m_stopped.exchange(true) || m_crashing.load()) return;
  try {
    if (m_heartbeatConnection) {
      CMutexLock lock(m_heartbeatMutex);
      CWatchdogCommand stopCommand;
      stopCommand.kind = CWatchdogCommand::kStop;
      (void)m_heartbeatConnection->call(stopCommand.toBytes(), CWatchdogCommand::kMaxFrameSize);
    }
  } catch (CError const&) {
    // The watchdog is gone already.
  }
  if (m_heartbeatConnection) m_heartbeatConnection->close();
  if (m_crashConnection) m_crashConnection->close();
  // The watchdog exits once told (or once this process has ended); a short
  // wait reaps it.
  try {
    if (m_process) (void)m_process->wait(kStopWaitMs);
  } catch (CError const&) {
    // Not started, or the OS cannot wait: nothing to reap.
  }
}

unsigned long long CWatchdog::getProcessId() const { return m_processId; }

bool CWatchdog::writeCrashDump(CCrashInfo const& info, wchar_t const* path) noexcept {
  if (m_stopped.load() || !m_crashConnection || m_crashing.exchange(true)) return false;
  auto const pointers = reinterpret_cast<std::uintptr_t>(info.getExceptionPointers());
  platform::CrashRecord const& record = info.getRecord();
  int const size = CWatchdogCommand::encodeCrash(m_frame + 4, kFrameCapacity - 4, info.getThreadId(), info.getTime(),
                                                 pointers, record.bytes, static_cast<int>(sizeof record.bytes), path);
  bool written = false;
  if (size > 0) {
    for (int i = 0; i < 4; ++i) m_frame[i] = static_cast<unsigned char>(static_cast<unsigned>(size) >> (8 * i));
    // The answer frame: its count, the status byte and the bool.
    unsigned char answer[6];
    written = m_crashConnection->writeNoThrow(m_frame, size + 4) &&
              m_crashConnection->readNoThrow(answer, 6, kDumpTimeoutMs) && answer[0] == 2 && answer[1] == 0 &&
              answer[2] == 0 && answer[3] == 0 && answer[4] == CIPCConnection::AnswerOK && answer[5] != 0;
  }
  m_crashing = false;
  return written;
}

}  // namespace qo

#include "qo/ipc/CWatchdogService.h"

#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "qo/core/CError.h"
#include "qo/ipc/CIPCConnection.h"
#include "qo/ipc/CIPCServer.h"
#include "qo/ipc/CWatchdogCommand.h"
#include "qo/log/CCrashTools.h"
#include "qo/platform/Crash.h"
#include "qo/platform/Minidump.h"
#include "qo/platform/Watchdog.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

constexpr int kHelloWaitMs = 30000;
constexpr int kPollMs = 50;

std::wstring toWide(String const& text) {
  std::wstring wide;
#ifdef _WIN32
  for (char16_t c : text.str()) wide.push_back(static_cast<wchar_t>(c));
#else
  for (char32_t c : text.toUTF32()) wide.push_back(static_cast<wchar_t>(c));
#endif
  return wide;
}

}  // namespace

CWatchdogService::CWatchdogService(long long processId) : m_processId(processId) {}

CWatchdogService::~CWatchdogService() = default;

void CWatchdogService::handleRequest(CIPCConnection& connection, std::vector<unsigned char> const& request,
                                     std::vector<unsigned char>& answer) {
  CWatchdogCommand const command = CWatchdogCommand::fromBytes(request);
  switch (command.kind) {
    case CWatchdogCommand::kHello: {
      long long const peer = connection.getPeerProcessId();
      if (command.processId != m_processId || (peer >= 0 && peer != m_processId)) {
        throw CError(u"This watchdog watches another process.");
      }
      CMutexLock lock(m_mutex);
      m_helloSeen = true;
      m_hangTimeoutMs = command.hangTimeoutMs;
      m_crashFolder = command.crashFolder;
      m_logPath = command.logPath;
      break;
    }
    case CWatchdogCommand::kHeartbeat: {
      CMutexLock lock(m_mutex);
      m_lastBeat = Clock::now();
      m_beating = true;
      m_hangReported = false;
      break;
    }
    case CWatchdogCommand::kCrash: {
      platform::CrashRecord record;
      platform::CrashRecord const* fault = nullptr;
      if (command.context.size() == sizeof record.bytes) {
        std::memcpy(record.bytes, command.context.data(), sizeof record.bytes);
        fault = &record;
      }
      char const* api = nullptr;
      CMutexLock dumping(m_dumpMutex);
      platform::SysError const e = platform::crashWriteMinidumpOfOtherProcess(
          static_cast<std::uint32_t>(m_processId), toWide(command.dumpPath).c_str(), command.threadId, fault,
          command.exceptionPointers, api);
      if (e) std::fprintf(stderr, "qo-watchdog: %s failed: %s\n", api ? api : "?", e.text.c_str());
      answer.push_back(e ? 0 : 1);
      break;
    }
    case CWatchdogCommand::kStop:
      m_stop.set();
      break;
  }
}

bool CWatchdogService::waitForStop(int millis) { return m_stop.wait(millis); }

bool CWatchdogService::isHelloSeen() const {
  CMutexLock lock(m_mutex);
  return m_helloSeen;
}

void CWatchdogService::checkHang() {
  String folder, logPath;
  long long silentMs = 0;
  {
    CMutexLock lock(m_mutex);
    if (!m_beating || m_hangReported || m_hangTimeoutMs < 0) return;
    silentMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_lastBeat).count();
    if (silentMs <= m_hangTimeoutMs) return;
    m_hangReported = true;
    folder = m_crashFolder;
    logPath = m_logPath;
  }
  try {
    String path = folder;
    if (!path.isEmpty() && !path.EndsWith(u"/") && !path.EndsWith(u"\\")) path += u"/";
    char stamp[CCrashTools::kDecimalCapacity];
    CCrashTools::formatDecimal(stamp, platform::crashTimeNow(), 10);
    path += u"hang-";
    path += String::fromUTF8(stamp);
    if (++m_hangReports > 1) path += String::fromUTF8("-" + std::to_string(m_hangReports));
    path += u"-minidump.mdmp";
    char const* api = nullptr;
    platform::SysError e;
    {
      CMutexLock dumping(m_dumpMutex);
      e = platform::crashWriteMinidumpOfOtherProcess(static_cast<std::uint32_t>(m_processId), toWide(path).c_str(),
                                                     0, nullptr, 0, api);
    }
    String text = String::fromUTF8("The process " + std::to_string(m_processId) + " sent no heartbeat for " +
                                   std::to_string(silentMs) + " ms; ");
    if (e) {
      text += String::fromUTF8(std::string("its hang report could not be written (") + (api ? api : "?") +
                               "): " + e.text);
    } else {
      text += u"hang report: ";
      text += path;
    }
    if (!m_log && !logPath.isEmpty()) m_log = newP<CXMLLog>(logPath);
    if (m_log) m_log->logWarning(text);
  } catch (std::exception const& error) {
    std::fprintf(stderr, "qo-watchdog: %s\n", error.what());
  }
}

void CWatchdogService::closeLog() {
  try {
    if (m_log) m_log->close();
  } catch (std::exception const& error) {
    std::fprintf(stderr, "qo-watchdog: %s\n", error.what());
  }
}

int CWatchdogService::run(String const& endpoint, long long processId) {
  P<CWatchdogService> service = newP<CWatchdogService>(processId);
  P<CIPCServer> server = newP<CIPCServer>(service);
  server->setProtocolVersion(CWatchdogCommand::kProtocolVersion);
  server->setMaxFrameSize(CWatchdogCommand::kMaxFrameSize);
  server->setMaxConnections(4);
  try {
    server->listen(endpoint);
  } catch (std::exception const& e) {
    std::fprintf(stderr, "qo-watchdog: %s\n", e.what());
    return 3;
  }
  auto const started = Clock::now();
  while (!service->waitForStop(kPollMs)) {
    if (service->isHelloSeen()) {
      if (!platform::watchdogProcessAlive(static_cast<std::uint64_t>(processId))) break;
      service->checkHang();
    } else if (Clock::now() - started > std::chrono::milliseconds(kHelloWaitMs)) {
      break;
    }
  }
  server->stop();
  service->closeLog();
  return 0;
}

}  // namespace qo

#include "qo/log/CCrashHandler.h"

#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSystemError.h"
#include "qo/log/CAppendableXMLWriter.h"
#include "qo/log/CCrashInfo.h"
#include "qo/platform/Crash.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

void prepare(wchar_t* target, int capacity, String const& text, char16_t const* what) {
  if (CCrashTools::fsStringCopy(target, capacity, text) < 0) {
    throw CInvalidArgError(u"CCrashHandler::CCrashHandler", String(what) + u" is too long for the crash path",
                           CProps().add(u"path", text));
  }
}

}  // namespace

CCrashHandler::CCrashHandler(Path const& crashFolder, String const& applicationName, Path const& logPath,
                             bool writeMinidump)
    : m_writeMinidump(writeMinidump) {
  m_logPath[0] = 0;
  m_suffixPath[0] = 0;
  m_summary[0] = 0;
  if (crashFolder.isEmpty()) {
    throw CInvalidArgError(u"CCrashHandler::CCrashHandler", u"the crash folder is empty");
  }
  String folder = crashFolder.toString();
  prepare(m_folder, kCapacity, folder, u"the crash folder");
  platform::SysError const error = platform::crashCreateFolder(m_folder);
  if (error) {
    throw CSystemError(u"Error creating the crash folder.", u"CCrashHandler::CCrashHandler", u"CreateDirectoryW",
                       error, CProps().add(u"path", folder));
  }
  if (!folder.EndsWith(CWindowsPathTraits::getSep())) folder += CWindowsPathTraits::getSepChar();
  // Room for "crash-", 20 digits and "-minidump.mdmp".
  if (static_cast<int>(folder.length()) + 48 >= kCapacity) {
    throw CInvalidArgError(u"CCrashHandler::CCrashHandler", u"the crash folder is too long for the crash path",
                           CProps().add(u"path", folder));
  }
  m_folderLength = CCrashTools::fsStringCopy(m_folder, kCapacity, folder);
  if (!logPath.isEmpty()) {
    prepare(m_logPath, kCapacity, logPath.toString(), u"the log path");
    prepare(m_suffixPath, kCapacity, CAppendableXMLWriter::getSuffixFilePath(logPath.toString()), u"the log path");
  }
  if (!applicationName.isEmpty()) {
    String summary = applicationName;
    summary += u" crashed.";
    prepare(m_summary, static_cast<int>(sizeof m_summary / sizeof m_summary[0]), summary, u"the application name");
  }
}

CCrashHandler::~CCrashHandler() = default;

void CCrashHandler::setDumpWriter(ICrashDumpWriter* writer) {
  CMutexLock lock(m_dumpWriterMutex);
  P<ICrashDumpWriter> const keep = P<ICrashDumpWriter>::share(writer);
  m_pDumpWriter = writer;
  m_dumpWriter = keep;
}

P<ICrashDumpWriter> CCrashHandler::getDumpWriter() const {
  CMutexLock lock(m_dumpWriterMutex);
  return m_dumpWriter;
}

int CCrashHandler::buildBaseName(wchar_t* target, int capacity, long long time) const noexcept {
  int length = CCrashTools::fsStringCopy(target, capacity, m_folder);
  length = CCrashTools::fsStringAppend(target, capacity, length, "crash-");
  if (length < 0) return -1;
  char text[CCrashTools::kDecimalCapacity];
  CCrashTools::formatDecimal(text, time, 10);
  return CCrashTools::fsStringAppend(target, capacity, length, text);
}

void CCrashHandler::handleCrash(CCrashInfo& info, CCrashTools& tools) {
  // One report at a time. A thread that crashes again inside its own report
  // gives up at once; others wait, but not forever: a report stuck for a
  // minute should not keep the rest of the process from ending.
  std::uint32_t const self = platform::crashCurrentThreadId();
  int waited = 0;
  bool owned = true;
  for (std::uint32_t owner = 0; !m_reportingThread.compare_exchange_strong(owner, self); owner = 0) {
    if (owner == self) return;
    if (waited >= kMaxWaitMillis) {
      owned = false;
      break;
    }
    CCrashTools::sleep(5);
    waited += 5;
  }
  bool const first = !m_minidumpWritten;
  if (info.getTime() == m_lastTime && m_reportsInLastTime > 0) {
    ++m_reportsInLastTime;
  } else {
    m_lastTime = info.getTime();
    m_reportsInLastTime = 1;
  }
  wchar_t* const path = tools.getPathBuffer();
  int base = buildBaseName(path, CCrashTools::kPathCapacity, info.getTime());
  if (base >= 0 && m_reportsInLastTime > 1) {
    char number[CCrashTools::kDecimalCapacity + 1] = "-";
    CCrashTools::formatDecimal(number + 1, m_reportsInLastTime);
    base = CCrashTools::fsStringAppend(path, CCrashTools::kPathCapacity, base, number);
  }
  if (base >= 0) {
    CCrashFileAccess& file = tools.getFileAccessA();
    if (CCrashTools::fsStringAppend(path, CCrashTools::kPathCapacity, base, "-info.xml") > 0 &&
        file.open(path, CCrashFileAccess::kCreate)) {
      info.writeXML(file, true);
      file.close();
    }
    path[base] = 0;
    if (m_writeMinidump && first &&
        CCrashTools::fsStringAppend(path, CCrashTools::kPathCapacity, base, "-minidump.mdmp") > 0) {
      ICrashDumpWriter* const writer = m_pDumpWriter.load();
      if (writer != nullptr && writer->writeCrashDump(info, path)) {
        m_minidumpWritten = true;
      } else if (file.open(path, CCrashFileAccess::kCreate)) {
        m_minidumpWritten = true;
        info.writeWindowsMiniDumpUnsafe(file);
        file.close();
      }
    }
  }
  if (m_logPath[0] != 0) info.writeToXMLLog(tools, m_logPath, m_suffixPath, m_summary);
  if (owned) m_reportingThread.store(0);
}

}  // namespace qo

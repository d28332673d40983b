// CXMLLog: opening the log, its sessions, entries, shrinking and closing.
#include "qo/log/CXMLLog.h"

#include <exception>
#include <string>

#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CTime.h"
#include "qo/fs/CLockFile.h"
#include "qo/fs/LocalFile.h"
#include "qo/log/CLogErrorXMLElement.h"
#include "qo/log/CQuickXMLChecker.h"
#include "qo/platform/LocalTime.h"
#include "qo/platform/SysInfo.h"
#include "qo/thread/CMutexLock.h"

namespace qo {

namespace {

String const kLog = u"log";
String const kSession = u"session";

String twoDigits(int value) { return toString(value).padLeft(2, u'0'); }


}  // namespace

// --- header factories --------------------------------------------------------

CXMLLog::ISessionHeaderFactory::~ISessionHeaderFactory() = default;
CXMLLog::IEntryListener::~IEntryListener() = default;

CXMLLog::CDefaultSessionHeaderFactory::CDefaultSessionHeaderFactory(String const& id, String const& version,
                                                                    String const& edition)
    : m_id(id), m_version(version), m_edition(edition) {}

CXMLLog::CDefaultSessionHeaderFactory::~CDefaultSessionHeaderFactory() = default;

PC<CXMLElement> CXMLLog::CDefaultSessionHeaderFactory::createLogSessionHeader() {
  // What the system cannot tell stays 0 or empty: a header is no reason to
  // refuse the log.
  platform::OsInfo os;
  (void)platform::getOsInfo(os);
  platform::MemoryInfo memory;
  (void)platform::getMemoryInfo(memory);

  CXMLElement sysInfo(u"sysInfo");
  sysInfo.add(CXMLElement(u"osInfo", CProps()
                                         .add(u"type", String(os.type))
                                         .addLong(u"versionMajor", os.versionMajor)
                                         .addLong(u"versionMinor", os.versionMinor)
                                         .addLong(u"versionUpdate", os.versionUpdate)
                                         .addBool(u"is64Bit", os.is64Bit)
                                         .add(u"desc", String(os.description))));
  sysInfo.add(CXMLElement(u"memInfo", CProps()
                                          .add(u"totalPhysical", toString(memory.totalPhysical))
                                          .add(u"freePhysical", toString(memory.freePhysical))));
  sysInfo.add(CXMLElement(u"cpuInfo", CProps().addLong(u"coreCount", platform::getCoreCount())));

  P<CXMLElement> header(new CXMLElement(u"sessionHeader"));
  header->add(CXMLElement(u"appInfo", CProps().add(u"id", m_id).add(u"version", m_version).add(u"edition", m_edition)));
  header->add(sysInfo);
  return header;
}

// --- construction and the writer --------------------------------------------

CXMLLog::CXMLLog(String const& path, ISessionHeaderFactory* headerFactory, bool deleteOnClose, long long maxSize,
                 bool useLockFile, bool checkOnOpen, CError const* fakeWriteError) {
  if (!path.isEmpty() && useLockFile)
    m_lockFile = newP<CLockFile>(path + u".lock", IStreamBase::LockExclusive, deleteOnClose);
  m_headerFactory = P<ISessionHeaderFactory>::share(headerFactory);
  m_maxSize = maxSize;
  m_deleteOnClose = deleteOnClose;
  m_checkOnOpen = checkOnOpen;
  if (fakeWriteError != nullptr) m_fakeWriteError = fakeWriteError->clone();
  if (maxSize != -1 && maxSize < kMinMaxSize) throw CInvalidArgError(u"CXMLLog::CXMLLog", u"maxSize must be >=10KB");
  if (path.isEmpty()) {
    m_noFile = true;
    m_broken = true;
  } else {
    m_path = path;
    m_suffixPath = CAppendableXMLWriter::getSuffixFilePath(path);
  }
  initWriter(true);
  shrinkIfNecessary();
}

CXMLLog::~CXMLLog() {
  try {
    close();
  } catch (...) {
    // The files stay as the last flush left them: still a complete document.
  }
}

void CXMLLog::throwFakeError() const {
  if (m_fakeWriteError) m_fakeWriteError->throwClone();
}

void CXMLLog::setFakeWriteError(CError const* error) {
  CMutexLock lock(m_mutex);
  m_fakeWriteError = error != nullptr ? error->clone() : P<CError>();
}

bool CXMLLog::isWritable() const {
  CMutexLock lock(m_mutex);
  return !m_broken && m_writer;
}

void CXMLLog::initWriter(bool append) {
  if (m_noFile) return;
  CMutexLock lock(m_mutex);
  m_broken = true;
  m_writer = nil;
  P<CAppendableXMLWriter> writer;
  if (append) {
    throwFakeError();
    try {
      writer = newP<CAppendableXMLWriter>(m_path, true);
    } catch (CFileCorruptedError const&) {
      // A suffix file of something else: the pair is no log of ours.
    }
    if (writer) {
      int const open = writer->getOpenElementCount();
      bool usable = open >= 1 && writer->getOpenElementName(0) == kLog;
      // With only the root open nothing else vouches for the file, so it is
      // always checked; otherwise as the caller chose.
      if (usable && (open == 1 || m_checkOnOpen)) usable = CQuickXMLChecker(writer->getFullData()).doCheck();
      if (!usable) {
        writer = nil;
      } else {
        // Three or more open: an entry that a dead process left open.
        while (writer->getOpenElementCount() >= 3) writer->closeElement();
        if (writer->getOpenElementCount() == 2) {
          if (writer->getOpenElementName(1) == kSession) writer->writeElement(u"sessionUnfinished", String());
          writer->closeElement();
        }
        // Closing and opening go to the files in separate flushes: each has
        // a write order that keeps the pair complete, the mix has none.
        writer->flush();
      }
    }
  }
  if (!writer) {
    writer = newP<CAppendableXMLWriter>(m_path, false);
    writer->openElement(kLog);
    writer->flush();
  }
  m_writer = writer;
  try {
    openSession();
  } catch (...) {
    m_writer = nil;
    throw;
  }
  m_broken = false;
}

void CXMLLog::openSession() {
  m_writer->openElement(kSession, CProps().add(u"time", formatTime(CTime::now().getSeconds())));
  if (m_headerFactory) {
    if (PC<CXMLElement> header = m_headerFactory->createLogSessionHeader()) m_writer->writeElement(*header);
  }
  m_writer->flush();
}

void CXMLLog::shrinkIfNecessary() {
  if (m_maxSize == -1) return;
  CMutexLock lock(m_mutex);
  if (!m_writer || m_writer->getMainDataSize() <= m_maxSize) return;
  String const cut = cutMainData(m_writer->getMainData(), static_cast<std::size_t>(m_maxSize / 2));
  if (cut.isEmpty()) {
    m_writer = nil;
    initWriter(false);
  } else {
    m_writer->replaceMainData(cut);
  }
}

String CXMLLog::formatTime(long long secondsSince1970) {
  platform::LocalTimeFields t;
  if (platform::toLocalTime(secondsSince1970, t)) throw CError(u"Error formatting date time.");
  return toString(t.year).padLeft(4, u'0') + u"-" + twoDigits(t.month) + u"-" + twoDigits(t.day) + u"T" +
         twoDigits(t.hour) + u":" + twoDigits(t.minute) + u":" + twoDigits(t.second);
}

// --- entries -----------------------------------------------------------------

CProps CXMLLog::entryAttributes(LogLevel level, long long const* time) {
  long long const seconds = time != nullptr ? *time : CTime::now().getSeconds();
  // Entries come many to a second: the local time (a time-zone lookup, on
  // POSIX a stat of the zone file) is made once per second.
  if (seconds != m_timeSeconds || m_timeText.isEmpty()) {
    m_timeText = formatTime(seconds);
    m_timeSeconds = seconds;
  }
  return CProps().add(u"level", logLevelToString(level)).add(u"time", m_timeText);
}

void CXMLLog::writeEntry(LogLevel level, String const& text, long long const* time) {
  CMutexLock lock(m_mutex);
  notifyEntryListeners(level, text, nullptr, String());
  if (m_broken || !m_writer) return;
  CProps const attributes = entryAttributes(level, time);
  m_writer->seekToEnd();
  throwFakeError();
  m_writer->writeElement(u"entry", text, attributes);
  m_writer->flush();
  shrinkIfNecessary();
}

void CXMLLog::writeComplexEntry(LogLevel level, CXMLElement const& element, String const& summary,
                                String const& context) {
  CMutexLock lock(m_mutex);
  notifyEntryListeners(level, summary, &element, context);
  if (m_broken || !m_writer) return;
  CProps const attributes = entryAttributes(level, nullptr);
  m_writer->seekToEnd();
  throwFakeError();
  m_writer->openElement(u"centry", attributes);
  if (!summary.isEmpty()) m_writer->writeElement(u"summary", summary);
  if (!context.isEmpty()) m_writer->writeElement(u"context", context);
  m_writer->writeElement(element);
  m_writer->closeElement();
  m_writer->flush();
  shrinkIfNecessary();
}

void CXMLLog::log(LogLevel level, CXMLElement const* element, String const& text) {
  if (element == nullptr)
    writeEntry(level, text, nullptr);
  else
    writeComplexEntry(level, *element, text, String());
}

void CXMLLog::logError(String const& text) { writeEntry(LogLevelError, text); }
void CXMLLog::logError(char const* text) { writeEntry(LogLevelError, String(text)); }
void CXMLLog::logError(CXMLElement const& element, String const& summary, String const& context) {
  writeComplexEntry(LogLevelError, element, summary, context);
}
void CXMLLog::logError(std::exception const& exception, String const& summary, String const& context) {
  logException(LogLevelError, exception, summary, context);
}
void CXMLLog::logWarning(String const& text) { writeEntry(LogLevelWarning, text); }
void CXMLLog::logWarning(char const* text) { writeEntry(LogLevelWarning, String(text)); }
void CXMLLog::logWarning(CXMLElement const& element, String const& summary, String const& context) {
  writeComplexEntry(LogLevelWarning, element, summary, context);
}
void CXMLLog::logWarning(std::exception const& exception, String const& summary, String const& context) {
  logException(LogLevelWarning, exception, summary, context);
}
void CXMLLog::logInfo(String const& text) { writeEntry(LogLevelInfo, text); }
void CXMLLog::logInfo(CXMLElement const& element, String const& summary, String const& context) {
  writeComplexEntry(LogLevelInfo, element, summary, context);
}

void CXMLLog::logException(LogLevel level, std::exception const& exception, String const& summary,
                           String const& context) {
  writeComplexEntry(level, CLogErrorXMLElement(exception), summary, context);
}

void CXMLLog::logLogFileContents(LogLevel level, String const& path, String const& summary, String const& context) {
  CXMLElement text(u"logText");
  try {
    text.setText(readLogRaw(path));
  } catch (CError const& e) {
    writeComplexEntry(level, CLogErrorXMLElement(e), summary, context);
    return;
  }
  writeComplexEntry(level, text, summary, context);
}

// --- sessions and closing ----------------------------------------------------

void CXMLLog::beginNewSession() {
  CMutexLock lock(m_mutex);
  if (m_broken || !m_writer) return;
  m_writer->seekToEnd();
  throwFakeError();
  while (m_writer->getOpenElementCount() > 1) m_writer->closeElement();
  m_writer->flush();
  openSession();
  shrinkIfNecessary();
}

void CXMLLog::close() {
  CMutexLock lock(m_mutex);
  if (m_closed) return;
  m_closed = true;
  m_broken = true;
  P<CAppendableXMLWriter> writer = std::move(m_writer);
  m_writer = nil;
  std::exception_ptr failure;
  if (writer) {
    try {
      while (writer->getOpenElementCount() > 1) writer->closeElement();
      writer->flush();
    } catch (...) {
      failure = std::current_exception();
    }
    writer = nil;
  }
  if (m_deleteOnClose && !m_noFile) {
    try {
      deleteLocalFile(m_path, 20);
      deleteLocalFile(m_suffixPath, 20);
    } catch (...) {
      if (!failure) failure = std::current_exception();
    }
  }
  if (m_lockFile) {
    m_lockFile->unlock();
    m_lockFile = nil;
  }
  if (failure) std::rethrow_exception(failure);
}

void CXMLLog::abortLeaveSessionOpen() noexcept {
  CMutexLock lock(m_mutex);
  m_closed = true;
  m_broken = true;
  m_writer = nil;
  if (m_lockFile) {
    m_lockFile->unlock();
    m_lockFile = nil;
  }
}

String CXMLLog::getXMLData() const {
  CMutexLock lock(m_mutex);
  if (m_writer) return m_writer->getFullData();
  if (!m_noFile && localFileExists(m_path)) return readLogRaw(m_path);
  return String();
}

// --- entry listeners -----------------------------------------------------

void CXMLLog::addEntryListener(IEntryListener* listener) {
  if (!listener) return;
  CMutexLock lock(m_mutex);
  for (P<IEntryListener> const& l : m_entryListeners)
    if (l.get() == listener) return;
  P<IEntryListener> shared;
  shared = listener;
  m_entryListeners.push_back(shared);
}

void CXMLLog::removeEntryListener(IEntryListener* listener) {
  P<IEntryListener> keep;  // released after the lock
  CMutexLock lock(m_mutex);
  for (auto it = m_entryListeners.begin(); it != m_entryListeners.end(); ++it) {
    if (it->get() == listener) {
      keep = *it;
      m_entryListeners.erase(it);
      return;
    }
  }
}

void CXMLLog::notifyEntryListeners(LogLevel level, String const& text, CXMLElement const* element,
                                   String const& context) {
  if (m_entryListeners.empty()) return;
  std::vector<P<IEntryListener>> const listeners = m_entryListeners;
  for (P<IEntryListener> const& l : listeners) {
    try {
      l->onLogEntry(level, text, element, context);
    } catch (...) {
      // A listener's failure must not cost the entry its place in the log.
    }
  }
}

}  // namespace qo

// qo/log/CCrashHandler.h - the library's standard crash report.
//
// For a crash at time T (seconds since 1970 UTC) it writes, into the crash
// folder:
//   crash-<T>-info.xml       the crash-information file (CCrashInfo::writeXML)
//   crash-<T>-minidump.mdmp  a minidump (when asked for)
// where <T> is T in decimal, padded on the left with "0" to 10 digits and
// preceded by "-" when negative (crash-0000012345-info.xml); then it appends
// a `centry` for the crash to the XML session log and keeps the log's
// "-suffix" companion in step (CCrashInfo::writeToXMLLog).
//
// Crashes on several threads at once are reported one after the other, so
// their writes to the files and to the log never mix. The n-th report of
// the same second (n >= 2) is named crash-<T>-<n>-info.xml, so that it does
// not overwrite the first. Only the first report of the process gets a
// minidump: a minidump shows the process as a whole, and writing one takes
// long enough for the process to end before later ones are done.
//
// A dump writer (setDumpWriter, e.g. the crash watchdog CWatchdog) is asked
// to write the minidump first; the dump is written from inside the process
// when there is none or it fails.
//
// Everything that needs memory happens in the constructor: the folder is
// created (with its missing parents) and every path is prepared as wide
// text, so that handleCrash only copies characters into the slot's path
// buffer. On POSIX the Windows-syntax paths are used with backslashes taken
// as slashes.
//
//   CCrashManager::get()->setGlobalHandler(newP<CCrashHandler>(
//       TPathImpl<CWindowsPathTraits>(u"C:\\ProgramData\\App\\crashes"), u"App",
//       TPathImpl<CWindowsPathTraits>(u"C:\\ProgramData\\App\\log.xml"), true).get());
//   CCrashManager::get()->initHook();
#ifndef QO_LOG_CCRASHHANDLER_H
#define QO_LOG_CCRASHHANDLER_H

#include <atomic>
#include <cstdint>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"
#include "qo/log/CCrashTools.h"
#include "qo/log/ICrashDumpWriter.h"
#include "qo/log/ICrashHandler.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// Writes the crash-information file, the minidump and the log entry.
/// Thread-safe for handleCrash (reports are serialised; each writes only
/// its slot's buffers); not copyable.
class QO_API CCrashHandler : public CBase, public ICrashHandler {
public:
  using Path = TPathImpl<CWindowsPathTraits>;

  /// crashFolder: where the files go (created now when missing).
  /// applicationName: named in the log entry's summary
  /// ("<applicationName> crashed."); empty for no summary.
  /// logPath: the XML session log; empty for no log entry. Its suffix file
  /// is CAppendableXMLWriter::getSuffixFilePath of it.
  /// writeMinidump: whether to write the minidump.
  /// Throws CSystemError when the folder cannot be created and
  /// CInvalidArgError when a path is empty (the folder) or too long for the
  /// prepared buffers.
  CCrashHandler(Path const& crashFolder, String const& applicationName, Path const& logPath, bool writeMinidump);
  ~CCrashHandler() override;
  CCrashHandler(CCrashHandler const&) = delete;
  CCrashHandler& operator=(CCrashHandler const&) = delete;

  /// The writer asked first for each minidump (kept by reference); null to
  /// write dumps from inside the process only. Replace it only while no
  /// crash can be in progress. Thread-safe.
  void setDumpWriter(ICrashDumpWriter* writer);
  /// The current dump writer, may be null. Thread-safe.
  P<ICrashDumpWriter> getDumpWriter() const;

  /// Writes the two files and the log entry for the crash. Never throws,
  /// never allocates.
  void handleCrash(CCrashInfo& info, CCrashTools& tools) override;

  /// The crash folder with "crash-" and the padded time appended, into
  /// target (capacity characters). Returns the length, -1 when it does not
  /// fit. Never throws.
  int buildBaseName(wchar_t* target, int capacity, long long time) const noexcept;

private:
  static constexpr int kCapacity = CCrashTools::kPathCapacity;
  static constexpr int kMaxWaitMillis = 60000;
  wchar_t m_folder[kCapacity];  // with a trailing separator
  int m_folderLength = 0;
  wchar_t m_logPath[kCapacity];
  wchar_t m_suffixPath[kCapacity];
  wchar_t m_summary[512];
  bool m_writeMinidump;
  // The report being written: its thread (0 for none), and what was written
  // before, for naming and the one minidump.
  std::atomic<std::uint32_t> m_reportingThread{0};
  long long m_lastTime = 0;
  int m_reportsInLastTime = 0;
  bool m_minidumpWritten = false;
  // The crash path reads the writer without taking a reference first.
  std::atomic<ICrashDumpWriter*> m_pDumpWriter{nullptr};
  P<ICrashDumpWriter> m_dumpWriter;
  mutable CMutex m_dumpWriterMutex;
};

}  // namespace qo

#endif  // QO_LOG_CCRASHHANDLER_H

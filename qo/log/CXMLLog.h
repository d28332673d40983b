// qo/log/CXMLLog.h - the session log: one XML file per application that
// grows by one session per run, survives crashes and keeps to a size limit.
//
// File layout (UTF-8, two spaces of indent per depth):
//   <?xml version="1.0" encoding="UTF-8"?>
//
//   <log>
//     <snip />                                 (where older content was cut)
//     <session time="2026-11-23T10:53:24">     (local time of the start)
//       <sessionHeader>...</sessionHeader>      (from the header factory)
//       <entry level="info" time="...">text</entry>
//       <centry level="ERROR" time="...">
//         <summary>...</summary>                (when given)
//         <context>...</context>                (when given)
//         <error class="..." ...>...</error>    (the caller's element)
//       </centry>
//       <sessionUnfinished></sessionUnfinished> (the run ended without close)
//     </session>
//   </log>
// The end tags of the open elements live in the "-suffix" file beside the
// log (CAppendableXMLWriter), so the main file plus the suffix file is a
// complete document after every entry. A ".lock" file beside the log keeps
// a second CXMLLog, in this process or another, off the same log.
//
// Opening continues the file: what a process killed in the middle of a
// write left is repaired (a cut-off tail removed, the end tags rebuilt from
// the main file), elements left open by a dead process are closed, its
// session gets "sessionUnfinished", and a damaged or foreign file is
// replaced by a new one. The main file plus the suffix file is well formed
// at every instant, also while a kill stops the process in the middle of an
// entry of any length, of opening, of close() or of a cut: each change is a
// sequence of steps that each leave a complete document (see
// CAppendableXMLWriter). Opening and closing a session, and the cut, take a
// few more steps than an entry, which usually takes one write().
// With a size limit, a main file that grows past it is cut from the front
// at an element boundary to about half the limit, and "<snip />" marks the
// cut.
//
// Failures: construction throws (lock held, file not writable, a bad
// limit); after that entries throw what writing throws (CIOError), while a
// closed log, or one without a path, drops entries silently.
//
// The process-wide log (getGlobal) is what the free functions of
// qo/log/logFunctions.h write to. Once it exists, or once a creation
// function is set, the library's own error reports (qo/core/ErrorLog.h) go
// into it as well.
//
//   P<CXMLLog::ISessionHeaderFactory> header(
//       new CXMLLog::CDefaultSessionHeaderFactory(u"app", u"7.1", u"pro"));
//   P<CXMLLog> log = newP<CXMLLog>(u"C:\\ProgramData\\App\\log.xml", header.get(), false, 1 << 20);
//   log->logInfo(u"Backup started.");
//   catch (std::exception const& e) { log->logError(e, u"Backup failed.", u"job 12"); }
//   log->close();
//
// Thread-safe: every operation takes the log's recursive mutex.
#ifndef QO_LOG_CXMLLOG_H
#define QO_LOG_CXMLLOG_H

#include <exception>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/log/CAppendableXMLWriter.h"
#include "qo/log/CXMLElement.h"
#include "qo/log/LogLevel.h"
#include "qo/thread/CMutex.h"

namespace qo {

class CLockFile;

/// The XML session log. Thread-safe.
class QO_API CXMLLog : public CBase {
public:
  /// Makes the "sessionHeader" element that starts every session.
  class QO_API ISessionHeaderFactory : public virtual IBase {
  public:
    ~ISessionHeaderFactory() override;
    /// The header element (null: the session has none). Called under the
    /// log's lock; may throw, which fails the opening of the session.
    virtual PC<CXMLElement> createLogSessionHeader() = 0;
  };

  /// The standard header: "appInfo" (id, version, edition) and "sysInfo"
  /// ("osInfo", "memInfo", "cpuInfo" as the system reports them).
  /// Thread-safe.
  class QO_API CDefaultSessionHeaderFactory : public CBase, public virtual ISessionHeaderFactory {
  public:
    CDefaultSessionHeaderFactory(String const& id, String const& version, String const& edition);
    ~CDefaultSessionHeaderFactory() override;
    /// <sessionHeader><appInfo edition=".." id=".." version=".."></appInfo>
    /// <sysInfo><osInfo desc is64Bit type versionMajor versionMinor
    /// versionUpdate/><memInfo freePhysical totalPhysical/><cpuInfo
    /// coreCount/></sysInfo></sessionHeader> (attributes in key order;
    /// values the system could not tell are 0 or empty). Never null.
    PC<CXMLElement> createLogSessionHeader() override;

  private:
    String m_id;
    String m_version;
    String m_edition;
  };

  /// Told of every entry given to the log, before it is written, also when
  /// the log has no file, is closed or fails to write (so that a copy kept
  /// elsewhere, such as the system's event log, does not depend on the
  /// file). CEventLogMirror (qo/sys) is one.
  class QO_API IEntryListener : public virtual IBase {
  public:
    ~IEntryListener() override;
    /// A plain entry: its text, element null, context empty. A complex
    /// entry: its summary, its element and its context. Called under the
    /// log's lock, in the order of the entries; must not write to this log
    /// and should not throw (what it throws is dropped).
    virtual void onLogEntry(LogLevel level, String const& text, CXMLElement const* element, String const& context) = 0;
  };

  /// Makes the global log on first use (see setGlobalCreateFunc).
  using CreateFunc = P<CXMLLog> (*)();

  /// The process-wide settings of the global log. Read and written under
  /// getGlobalMutex().
  struct QO_API CGlobalInstanceParams {
    /// Makes the global instance; null: the default log "log.xml".
    CreateFunc createFunc = nullptr;
    /// Set when the global instance is made; cleared when it is disposed.
    bool instanceCreated = false;
    /// The one instance. Lives as long as the process.
    static CGlobalInstanceParams& get();
  };

  /// Closes the global log, if there is one, when it ends: put one at the
  /// top of main() so that the last session ends cleanly. Holds nothing.
  class QO_API CGlobalLogCloser {
  public:
    CGlobalLogCloser() = default;
    /// Closes and disposes the global instance; never throws.
    ~CGlobalLogCloser();
    CGlobalLogCloser(CGlobalLogCloser const&) = delete;
    CGlobalLogCloser& operator=(CGlobalLogCloser const&) = delete;
  };

  /// The smallest size limit in bytes (10 KiB).
  static constexpr long long kMinMaxSize = 10240;

  /// Opens the log at path (native; empty: a log that writes nothing) and
  /// starts a new session.
  /// - headerFactory: makes each session's header (shared; null: sessions
  ///   have no header).
  /// - deleteOnClose: close() deletes the log, its suffix file and its lock
  ///   file.
  /// - maxSize: limit of the main file in bytes, -1 for none; otherwise at
  ///   least kMinMaxSize.
  /// - useLockFile: hold path + ".lock" exclusively while open, so a second
  ///   log on the same path is refused.
  /// - checkOnOpen: check the whole found document (CQuickXMLChecker)
  ///   before continuing it, whatever elements are open; false checks only
  ///   a log whose last session was closed (the cheap case where nothing
  ///   else tells that the file is intact).
  /// - fakeWriteError: cloned; thrown wherever the log would write, to
  ///   exercise error paths (null: none).
  /// Throws CLockFileError when the lock file is held, CInvalidArgError
  /// "maxSize must be >=10KB" (function "CXMLLog::CXMLLog"), CIOError when
  /// the files cannot be written, CError "Error formatting date time." when
  /// the clock cannot be read as local time, the fake error.
  CXMLLog(String const& path, ISessionHeaderFactory* headerFactory = nullptr, bool deleteOnClose = false,
          long long maxSize = -1, bool useLockFile = true, bool checkOnOpen = true,
          CError const* fakeWriteError = nullptr);
  /// close(); never throws.
  ~CXMLLog() override;
  CXMLLog(CXMLLog const&) = delete;
  CXMLLog& operator=(CXMLLog const&) = delete;

  /// An "entry" with level and text, stamped with time (seconds since
  /// 1970 UTC; null: now). Dropped when the log is closed or has no file.
  /// Throws CIOError, the fake error, CError "Error formatting date time.".
  void writeEntry(LogLevel level, String const& text, long long const* time = nullptr);
  /// A "centry" holding "summary" and "context" (each only when not empty)
  /// and element. Dropped and throws as writeEntry.
  void writeComplexEntry(LogLevel level, CXMLElement const& element, String const& summary, String const& context);
  /// element null: writeEntry(level, text); otherwise a complex entry of
  /// element with text as its summary.
  void log(LogLevel level, CXMLElement const* element, String const& text);

  // Shorthands of writeEntry / writeComplexEntry / logException; they throw
  // as those do. A null text counts as empty.
  void logError(String const& text);
  void logError(char const* text);
  void logError(CXMLElement const& element, String const& summary, String const& context);
  void logError(std::exception const& exception, String const& summary, String const& context);
  void logWarning(String const& text);
  void logWarning(char const* text);
  void logWarning(CXMLElement const& element, String const& summary, String const& context);
  void logWarning(std::exception const& exception, String const& summary, String const& context);
  void logInfo(String const& text);
  void logInfo(CXMLElement const& element, String const& summary, String const& context);
  /// A complex entry of CLogErrorXMLElement(exception).
  void logException(LogLevel level, std::exception const& exception, String const& summary, String const& context);
  /// A complex entry of "logText" holding the document of the log at path
  /// (readLogRaw); when it cannot be read, the entry holds the read error
  /// instead.
  void logLogFileContents(LogLevel level, String const& path, String const& summary, String const& context);

  /// Ends the current session and starts another with a new header.
  /// Nothing when the log is closed. Throws as writeEntry.
  void beginNewSession();
  /// Ends the session, flushes and closes the files; with deleteOnClose
  /// deletes the log and suffix files (20 attempts each); releases the lock
  /// file. Later entries are dropped. Idempotent. Throws CIOError; the log
  /// is closed all the same.
  void close();
  /// Closes the files without ending the session, as if the process died
  /// (the next open marks the session "sessionUnfinished"); releases the
  /// lock file. Never throws.
  void abortLeaveSessionOpen() noexcept;
  /// The complete document: while open the writer's data, afterwards the
  /// file's (readLogRaw), "" when there is none. Throws CIOError.
  String getXMLData() const;
  /// Adds listener (shared; a second add of the same one is ignored).
  /// Thread-safe.
  void addEntryListener(IEntryListener* listener);
  /// Removes listener; an unknown one is ignored. Once this returns it is
  /// not called again. Thread-safe.
  void removeEntryListener(IEntryListener* listener);
  /// Sets (cloned) or clears (null) the fake write error.
  void setFakeWriteError(CError const* error);

  String const& getPath() const noexcept { return m_path; }
  String const& getSuffixPath() const noexcept { return m_suffixPath; }
  long long getMaxSize() const noexcept { return m_maxSize; }
  /// True when entries are written now (open, with a file).
  bool isWritable() const;

  /// The log file at path followed by its suffix file, as text. Throws
  /// CIOError (kind 1, "fileSysProblem" 1 when there is no log).
  static String readLogRaw(String const& path);
  /// Reads the log at path for showing or sending it: false (out empty)
  /// when it is missing or not well formed (say, while another process
  /// writes it); otherwise true with out a well-formed document of the
  /// newest part of the log: only the last maxSessions sessions, and only
  /// from the first entry or session that starts within the last maxBytes
  /// characters (kept whole when none starts there). A cut is marked
  /// "<snip />" as shrinking does. -1 means no limit for either. Throws
  /// CInvalidArgError for a limit below 1 other than -1, CIOError when the
  /// file exists but cannot be read.
  static bool readValidLog(String& out, String const& path, int maxBytes, int maxSessions);

  /// Local time of secondsSince1970 as "%Y-%m-%dT%H:%M:%S". Throws CError
  /// "Error formatting date time." when the OS cannot convert it.
  static String formatTime(long long secondsSince1970);
  /// The cut of shrinking: main data cut at the first entry or session
  /// that starts at or after from (see the top); "" when none does or the
  /// data has no "<log" line before it.
  static String cutMainData(String const& data, std::size_t from);
  /// The head of data (through the "<log" line), "<snip />", then data from
  /// pos (the line break before a session's start tag). "" when data has no
  /// "<log" line ending at or before pos.
  static String cutMainDataAtSession(String const& data, std::size_t pos);
  /// As cutMainDataAtSession, with the start-tag line of the session that
  /// contains pos (the line break before an entry) kept after "<snip />".
  static String cutMainDataAtEntry(String const& data, std::size_t pos);

  // --- the global log -----------------------------------------------------
  /// The global log, made on first use by the creation function or as
  /// "log.xml" in the current folder with a CDefaultSessionHeaderFactory
  /// ("unnamedApp", "", ""). When making it fails (or the function returns
  /// null) the global log is one without a file, and the failure goes to the
  /// debugger output. Never null. Thread-safe.
  static P<CXMLLog> getGlobal();
  /// True when the global log exists. Thread-safe.
  static bool haveGlobalLogInstance();
  /// True when a creation function is set. Thread-safe.
  static bool haveGlobalCreateFunc();
  /// Sets the creation function of the global log (null: the default). A
  /// function routes the library's error reports to the global log at once;
  /// null stops that until the log exists. Throws CError
  /// "Cannot change global log creation function. Global log instance
  /// already created." once the global log exists. Thread-safe.
  static void setGlobalCreateFunc(CreateFunc createFunc);
  /// Stops routing the library's error reports to the log and drops the
  /// global log (it closes when its last user lets go); the next getGlobal
  /// makes a new one. Thread-safe.
  static void disposeGlobalInstance();

private:
  void initWriter(bool append);
  void shrinkIfNecessary();
  void throwFakeError() const;
  void openSession();
  void notifyEntryListeners(LogLevel level, String const& text, CXMLElement const* element, String const& context);
  CProps entryAttributes(LogLevel level, long long const* time);

  mutable CMutex m_mutex;
  P<CAppendableXMLWriter> m_writer;
  P<ISessionHeaderFactory> m_headerFactory;
  P<CLockFile> m_lockFile;
  P<CError> m_fakeWriteError;
  String m_path;
  String m_suffixPath;
  long long m_maxSize = -1;
  bool m_broken = true;
  bool m_deleteOnClose = false;
  bool m_noFile = false;
  bool m_checkOnOpen = true;
  bool m_closed = false;
  std::vector<P<IEntryListener>> m_entryListeners;
  // The last entry time and its text (under m_mutex).
  long long m_timeSeconds = 0;
  String m_timeText;
};

}  // namespace qo

#endif  // QO_LOG_CXMLLOG_H

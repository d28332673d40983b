// examples/qo-backup-run.h - one backup of a folder tree into another.
//
// The run scans the source first (so the progress has totals), then creates
// the target folders and copies the files through a CFileSystemHub, several
// stores queued on the file system's "qo.bgOp" worker at a time:
//   - a file whose target has the same size and modification time is left
//     alone (incremental mode, the default);
//   - every other file is stored with backgroundStore over its target: the
//     local file system writes a private temporary file beside it and
//     renames it into place only when it is complete, so a failed copy
//     never costs what the target had; then the copy gets the source's
//     time, permissions, owner (root), extended attributes or security;
//   - a file whose size or time differs after its copy fails that store (the
//     old copy stays) and is copied once more; changing again, it is a
//     warning and the exit code is 1;
//   - folders get their times and permissions last, deepest first;
//   - a failure is reported (console and session log) and the run goes on
//     with the next file; a source file that vanished since the scan is only
//     a warning.
#ifndef QO_EXAMPLES_QO_BACKUP_RUN_H
#define QO_EXAMPLES_QO_BACKUP_RUN_H

#include <deque>
#include <string>
#include <vector>

#include "qo-backup-console.h"
#include "qo/qo.h"

namespace qobackup {

/// 16 hexadecimal digits that no other run is likely to pick.
qo::String randomRunId();

/// What the command line asked for.
struct Options {
  qo::CURI source;  ///< Folder URI.
  qo::CURI target;  ///< Folder URI.
  bool dryRun = false;
  bool verbose = false;
  bool incremental = true;
  bool followLinks = false;  ///< Links to files copied as what they lead to.
};

/// Counts of one run, for the summary.
struct Totals {
  long long filesSeen = 0;
  long long filesCopied = 0;
  long long filesUnchanged = 0;
  long long filesFailed = 0;
  long long filesVanished = 0;
  long long filesChanged = 0;  ///< Changed while copied, twice: old copy kept.
  long long foldersCreated = 0;
  long long foldersFailed = 0;
  long long entriesSkipped = 0;  ///< Links to folders, devices, pipes ...
  long long bytesSeen = 0;
  long long bytesCopied = 0;
};

/// One backup run. Not thread-safe.
class CBackupRun {
public:
  /// The run works through fs (a hub serving the URIs' scheme); the stores
  /// go round-robin to storeFs (hubs like fs, each with its own worker;
  /// empty: fs alone).
  CBackupRun(Options const& options, qo::P<qo::IFileSystem> const& fs,
             std::vector<qo::P<qo::IFileSystem>> const& storeFs, CConsole& console);
  ~CBackupRun();
  /// Keeps, through local, the POSIX owner and group of files and folders
  /// (as far as this process may give files away: root may, others silently
  /// keep their own) and their extended attributes, ACLs included (those
  /// this process may set), where the system has them; on Windows their
  /// security descriptors where readable (the DACL; owners where allowed).
  void keepOwnersAndAttributes(qo::P<qo::CLocalFileSystem> const& local) { m_local = local; }
  CBackupRun(CBackupRun const&) = delete;
  CBackupRun& operator=(CBackupRun const&) = delete;

  /// Scans and copies; failures of single files are counted, not thrown.
  /// Throws CError only when the source folder itself cannot be read.
  void run();

  Totals const& getTotals() const { return m_totals; }
  /// True when anything failed.
  bool hasFailures() const {
    return m_totals.filesFailed > 0 || m_totals.foldersFailed > 0 || m_totals.filesChanged > 0;
  }

private:
  class CCountingInStream;
  struct File {
    qo::String relative;  ///< "/"-separated, below the source folder.
    long long size = 0;
    qo::CTime modified;
    int mode = -1;  ///< POSIX permission bits; -1 on Windows.
    qo::TFlags<qo::IFileInfoBase::Attribute> attributes;
    bool retried = false;  ///< Copied once more after it changed.
    long long owner = -1;  ///< POSIX user and group ids; -1: not kept.
    long long group = -1;
  };
  struct Link {
    qo::String relative;
    qo::String text;  ///< What the link holds, as it is (may be relative).
    bool toFolder = false;
    qo::CTime modified;
  };
  struct Folder {
    qo::String relative;
    qo::CTime modified;
    int mode = -1;
    qo::TFlags<qo::IFileInfoBase::Attribute> attributes;
    long long owner = -1;
    long long group = -1;
  };
  struct Pending {
    File const* file = nullptr;
    qo::CURI target;
    qo::P<qo::IBackgroundOp> op;
    qo::P<CCountingInStream> source;
  };

  void scanFolder(qo::CURI const& folder, qo::String const& relative);
  void createFolders();
  void removeTemporaryFiles(qo::String const& relative);
  static bool isTemporaryName(qo::String const& name);
  void copyFiles();
  void startCopy(File const& file);
  void finishOldest();
  void requeueChanged(File const& file);
  void makeWritable(qo::CURI const& target);
  void makeFolderUsable(qo::String const& relative);
  template <class Item>
  void applyMetaData(qo::CURI const& target, Item const& item);
  template <class Item>
  void readOwner(qo::String const& relative, Item& item);
  void finishFolders();
  void copyLinks();
  bool isUnchanged(File const& file, qo::CURI const& target);
  bool isListed(qo::String const& relative);
  void showProgress(bool force = false);
  void reportFailure(qo::String const& relative, std::exception const& e, qo::String const& what);
  void reportWarning(qo::String const& relative, qo::String const& what);
  void verboseLine(char const* action, qo::String const& relative);
  qo::CURI sourceOf(qo::String const& relative) const;
  qo::CURI targetOf(qo::String const& relative) const;

  Options m_options;
  qo::P<qo::IFileSystem> m_fs;
  std::vector<qo::P<qo::IFileSystem>> m_storeFs;
  qo::P<qo::CLocalFileSystem> m_local;  ///< Null: owners and attributes are not kept.
  bool m_keepOwners = true;
  bool m_keepAttributes = true;
  bool m_keepSecurity = qo::localPathsAreWindowsPaths();  ///< Windows security descriptors.
  CConsole& m_console;
  std::vector<Folder> m_folders;
  std::vector<Link> m_links;
  std::deque<File> m_files;  ///< A deque: files queued again keep the others in place.
  std::deque<Pending> m_pending;
  Totals m_totals;
  Progress m_progress;
  long long m_bytesOfFinished = 0;  ///< Bytes of files done before the ones in flight.
  std::size_t m_storeCounter = 0;
  long long m_linkCounter = 0;
  qo::String m_runId = randomRunId();  ///< Keeps this run's temporary names apart from any other's.
};

/// An error's description followed by those of its causes, without the
/// library's internal trace.
std::string describe(std::exception const& e);

/// text in UTF-8 for people: a lone surrogate that stands for a byte of a
/// name that is not UTF-8 (U+DC80..U+DCFF) shows as "\xNN", any other lone
/// surrogate or control character as "\uNNNN".
std::string printable(qo::String const& text);

}  // namespace qobackup

#endif  // QO_EXAMPLES_QO_BACKUP_RUN_H

// examples/qo-backup-run.cpp - scanning and copying for qo-backup.
#include "qo-backup-run.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <random>
#include <cstdio>

namespace qobackup {

using qo::CError;
using qo::CFileSystemError;
using qo::CTime;
using qo::CURI;
using qo::IFileInfoBase;
using qo::P;
using qo::String;

namespace {

// Stores queued per worker: enough that opening the next source and renaming
// the last target overlap the workers' copying.
constexpr std::size_t kInFlightPerWorker = 4;
// How long the main thread waits for a store before it redraws the progress.
constexpr int kWaitSliceMs = 100;

// What a source file that changed during its copy fails the store with.
char16_t const kChangedText[] = u"The file changed while it was copied.";
class CChangedError : public CError {
public:
  CChangedError() : CError(kChangedText) {}
};

bool isChangedError(CError const& error) { return error.getMessage() == kChangedText; }

std::string utf8(String const& text) { return printable(text); }

int problemOf(std::exception const& e) {
  auto const* error = dynamic_cast<CError const*>(&e);
  return error ? CFileSystemError::getProblem(error->getParams()) : CFileSystemError::kUnknown;
}

}  // namespace

String randomRunId() {
  std::random_device device;
  std::uint64_t x = (static_cast<std::uint64_t>(device()) << 32) ^ device() ^
                    static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  char digits[17] = {};
  std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(x));
  return String::fromUTF8(digits);
}

std::string printable(String const& text) {
  std::string out;
  std::u16string const& units = text.str();
  for (std::size_t i = 0; i < units.size(); ++i) {
    char16_t const c = units[i];
    bool const high = c >= 0xD800 && c <= 0xDBFF;
    bool const paired = high && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF;
    if (paired) {
      out += String(units.substr(i, 2)).toUTF8Lossy();
      ++i;
      continue;
    }
    char escape[8] = {};
    if (c >= 0xDC80 && c <= 0xDCFF) {
      std::snprintf(escape, sizeof escape, "\\x%02X", static_cast<unsigned>(c - 0xDC00));
    } else if ((c >= 0xD800 && c <= 0xDFFF) || c < 0x20 || c == 0x7F) {
      std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<unsigned>(c));
    } else {
      out += String(std::u16string(1, c)).toUTF8Lossy();
      continue;
    }
    out += escape;
  }
  return out;
}

std::string describe(std::exception const& e) {
  auto const* error = dynamic_cast<CError const*>(&e);
  if (!error) return e.what();
  // What the library keeps for its own diagnosis is no news to a person.
  auto shown = [](CError const& one) {
    CError copy(one);
    copy.getParams().remove(CError::paramTrace());
    return printable(copy.getDesc());
  };
  std::string text = shown(*error);
  for (qo::PC<CError> cause = error->getCause(); cause; cause = cause->getCause()) text += " <- " + shown(*cause);
  return text;
}

// The source as the store job reads it, counting the bytes as they pass, so
// that the main thread can show the progress inside a large file. The worker
// reads, the main thread only looks at the count.
//
// At the end of the data it also checks that the file is still what the scan
// saw (size and modification time): otherwise it fails the store with
// CChangedError, before the copy replaces anything.
class CBackupRun::CCountingInStream : public qo::CBase, public virtual qo::IInStream {
public:
  CCountingInStream(P<qo::IIOStream> const& inner, P<qo::IFileSystem> const& fs, File const& file, CURI const& uri)
      : m_inner(inner), m_fs(fs), m_size(file.size), m_modified(file.modified), m_uri(uri) {}

  long long getCount() const { return m_count.load(std::memory_order_relaxed); }

  long long getLength() const override { return m_inner->getLength(); }
  long long getPosition() const override { return m_inner->getPosition(); }
  CURI getURI() override { return m_inner->getURI(); }
  void seek(long long position) override { m_inner->seek(position); }
  P<qo::IStreamLock> lockRange(long long start, long long length, LockType type) override {
    return m_inner->lockRange(start, length, type);
  }
  void close() override { m_inner->close(); }
  void read(void* buffer, int size) override {
    m_inner->read(buffer, size);
    m_count.fetch_add(size, std::memory_order_relaxed);
  }
  int readLax(void* buffer, int size) override {
    int const got = counted(m_inner->readLax(buffer, size));
    if (got == 0 && size > 0) checkUnchanged();
    return got;
  }
  int readAvailable(void* buffer, int size) override { return counted(m_inner->readAvailable(buffer, size)); }
  bool waitReadable(int timeoutMs) const override { return m_inner->waitReadable(timeoutMs); }
  bool isEndOfStream() const override { return m_inner->isEndOfStream(); }
  int isEndOfStream_NonBlocking() const override { return m_inner->isEndOfStream_NonBlocking(); }

private:
  void checkUnchanged() {
    long long const length = m_inner->getLength();
    P<IFileInfoBase> const info = m_fs->getFileInfo(m_uri, true);
    if (length != m_size || getCount() != m_size || info->getSize() != m_size ||
        (m_modified.isValid() && info->getLastWriteTime() != m_modified)) {
      throw CChangedError();
    }
  }

  int counted(int got) {
    m_count.fetch_add(got, std::memory_order_relaxed);
    return got;
  }

  P<qo::IIOStream> m_inner;
  P<qo::IFileSystem> m_fs;
  long long const m_size;
  CTime const m_modified;
  CURI const m_uri;
  std::atomic<long long> m_count{0};
};

CBackupRun::CBackupRun(Options const& options, P<qo::IFileSystem> const& fs,
                       std::vector<P<qo::IFileSystem>> const& storeFs, CConsole& console)
    : m_options(options), m_fs(fs), m_storeFs(storeFs), m_console(console) {
  if (m_storeFs.empty()) m_storeFs.push_back(m_fs);
}

CBackupRun::~CBackupRun() {
  // Only reached with stores in flight when run() threw: let them end (a
  // failed store leaves the old copy and no temporary file).
  for (Pending& pending : m_pending) {
    try {
      (void)pending.op->waitFinished(-1);
    } catch (std::exception const&) {
      // The run is failing already.
    }
  }
}

CURI CBackupRun::sourceOf(String const& relative) const {
  return relative.isEmpty() ? m_options.source : m_options.source << CURI(CURI::escape(relative, false, u"/"));
}

CURI CBackupRun::targetOf(String const& relative) const {
  return relative.isEmpty() ? m_options.target : m_options.target << CURI(CURI::escape(relative, false, u"/"));
}

void CBackupRun::run() {
  if (!m_options.dryRun) qo::logInfo(String(u"Scanning ") + m_options.source.toString(true));
  scanFolder(m_options.source, String());
  m_progress.filesTotal = static_cast<long long>(m_files.size() + m_links.size());
  m_progress.bytesTotal = m_totals.bytesSeen;
  m_totals.filesSeen = m_progress.filesTotal;
  if (!m_options.dryRun)
    qo::logInfo(String(u"Found ") + qo::toString(m_progress.filesTotal) + u" files (" + qo::toString(m_totals.bytesSeen) +
              u" bytes) in " + qo::toString(static_cast<long long>(m_folders.size())) + u" folders.");
  m_console.start();
  createFolders();
  copyFiles();
  copyLinks();
  finishFolders();
  showProgress(true);
}

// --- scan --------------------------------------------------------------------

void CBackupRun::scanFolder(CURI const& folder, String const& relative) {
  P<qo::IFolderContentsIterator> it;
  try {
    it = m_fs->getFolderContents(folder);
  } catch (std::exception const& e) {
    if (relative.isEmpty()) throw;  // the source itself: nothing to back up
    ++m_totals.foldersFailed;
    reportFailure(relative, e, u"Cannot list the folder");
    return;
  }
  std::vector<Folder> subfolders;
  try {
    P<IFileInfoBase> entry;
    while (it->getNext(entry)) {
      String const name = entry->getName();
      String const childRelative = relative.isEmpty() ? name : relative + u"/" + name;
      IFileInfoBase::Kind kind = entry->getKind();
      P<IFileInfoBase> info = entry;
      if (entry->isLink() && !m_options.followLinks) {
        // A link is copied as a link, holding the same text.
        m_links.push_back(Link{childRelative, entry->getLinkTarget(), entry->isLinkToFolder(), entry->getLastWriteTime()});
        continue;
      }
      if (entry->isLink()) {
        // Followed, a link to a file is backed up as what it leads to; a
        // link to a folder is not (it could lead back up the tree), and a
        // dangling one is kept as a file so that its failure is reported.
        try {
          info = m_fs->getFileInfo(sourceOf(childRelative), true);
          kind = info->getKind();
        } catch (std::exception const&) {
          kind = IFileInfoBase::KindNone;
        }
        if (kind == IFileInfoBase::KindFolder) {
          ++m_totals.entriesSkipped;
          reportWarning(childRelative, u"Link to a folder, not followed");
          continue;
        }
        if (kind != IFileInfoBase::KindFile) {
          m_files.push_back(File{childRelative, 0, CTime::invalid(), -1, {}, false, -1, -1});
          continue;
        }
      }
      switch (kind) {
      case IFileInfoBase::KindFolder:
        subfolders.push_back(
            Folder{childRelative, info->getLastWriteTime(), info->getPosixMode(), info->getAttributes(), -1, -1});
        readOwner(childRelative, subfolders.back());
        break;
      case IFileInfoBase::KindFile:
        m_files.push_back(File{childRelative, info->getSize(), info->getLastWriteTime(), info->getPosixMode(),
                               info->getAttributes(), false, -1, -1});
        readOwner(childRelative, m_files.back());
        m_totals.bytesSeen += std::max(0LL, info->getSize());
        break;
      case IFileInfoBase::KindNone:
        break;  // gone between listing and looking
      default:
        ++m_totals.entriesSkipped;
        reportWarning(childRelative, u"Not a regular file or folder, skipped");
        break;
      }
    }
  } catch (std::exception const& e) {
    ++m_totals.foldersFailed;
    reportFailure(relative, e, u"Cannot list the folder completely");
  }
  for (Folder const& subfolder : subfolders) {
    m_folders.push_back(subfolder);
    scanFolder(sourceOf(subfolder.relative), subfolder.relative);
  }
}

// --- copy --------------------------------------------------------------------

bool CBackupRun::isTemporaryName(String const& name) {
  return qo::CLocalFileSystem::isTemporaryName(name) || (name.StartsWith(u"~qo-backup-") && name.EndsWith(u".tmp"));
}

void CBackupRun::removeTemporaryFiles(String const& relative) {
  // What a run that crashed or was killed left behind; the target's lock
  // keeps every other run away, so none of them is in use.
  try {
    P<qo::IFolderContentsIterator> it = m_fs->getFolderContents(targetOf(relative));
    P<IFileInfoBase> entry;
    std::vector<CURI> stale;
    while (it->getNext(entry)) {
      if (entry->isFile() && isTemporaryName(entry->getName())) stale.push_back(targetOf(relative) << entry->getName());
    }
    for (CURI const& uri : stale) m_fs->deleteFile(uri, true);
  } catch (std::exception const& e) {
    reportWarning(relative.isEmpty() ? String(u".") : relative,
                  String(u"Cannot remove temporary files of an earlier run: ") + String::fromUTF8(describe(e)));
  }
}

void CBackupRun::createFolders() {
  if (m_options.dryRun) return;
  removeTemporaryFiles(String());
  // Parents come before their children: the scan records a folder before it
  // descends into it.
  for (Folder const& folder : m_folders) {
    CURI const target = targetOf(folder.relative);
    try {
      m_fs->createFolder(target, 0);
      ++m_totals.foldersCreated;
      verboseLine("folder", folder.relative);
    } catch (std::exception const& e) {
      if (problemOf(e) == CFileSystemError::kAlreadyExists && m_fs->folderExists(target)) {
        makeFolderUsable(folder.relative);
        removeTemporaryFiles(folder.relative);
        continue;
      }
      ++m_totals.foldersFailed;
      reportFailure(folder.relative, e, u"Cannot create the target folder");
    }
  }
}

template <class Item>
void CBackupRun::readOwner(String const& relative, Item& item) {
  if (!m_local || !m_keepOwners) return;
  try {
    m_local->getOwner(sourceOf(relative), true, item.owner, item.group);
  } catch (qo::CNotImplementedError const&) {
    m_keepOwners = false;  // no owner ids on this system
  } catch (std::exception const&) {
    // Copying will tell what is wrong with the file.
  }
}

template <class Item>
void CBackupRun::applyMetaData(CURI const& target, Item const& item) {
  if (m_local && m_keepAttributes) {
    try {
      for (auto const& [name, value] : m_local->getExtendedAttributes(sourceOf(item.relative), true)) {
        try {
          m_local->setExtendedAttribute(target, false, name, value);
        } catch (CError const& e) {
          // What this process may not set, or the target cannot hold, is
          // left out, as cp -a does.
          int const problem = CFileSystemError::getProblem(e.getParams());
          if (problem != CFileSystemError::kAccessDenied && problem != CFileSystemError::kUnsupported) throw;
        }
      }
    } catch (qo::CNotImplementedError const&) {
      m_keepAttributes = false;  // no extended attributes on this system
    }
  }
  if (m_local && m_keepSecurity) {
    try {
      P<qo::IFileSystem::CNativeMetaData> const security =
          m_local->getNativeMetaData(sourceOf(item.relative), true, u"security");
      qo::PC<qo::TBuffer<unsigned char>> const bytes = security->getData();
      m_local->setSecurityDescriptor(
          target, std::string(reinterpret_cast<char const*>(bytes->getData()), static_cast<std::size_t>(bytes->getSize())));
    } catch (qo::CNotImplementedError const&) {
      m_keepSecurity = false;
    } catch (CError const& e) {
      // A descriptor this process may not read or set is left as it is.
      int const problem = CFileSystemError::getProblem(e.getParams());
      if (problem != CFileSystemError::kAccessDenied && problem != CFileSystemError::kUnsupported) throw;
    }
  }
  if (m_local && m_keepOwners && item.owner >= 0) {
    long long owner = -1, group = -1;
    m_local->getOwner(target, false, owner, group);
    if (owner != item.owner || group != item.group) {
      try {
        // Before the mode: giving a file away clears its set-id bits.
        m_local->setOwner(target, false, item.owner, item.group);
      } catch (CError const& e) {
        if (CFileSystemError::getProblem(e.getParams()) != CFileSystemError::kAccessDenied) throw;
        m_keepOwners = false;  // not root: the copies stay ours, as with cp -a
      }
    }
  }
  P<qo::IFileMetaModifier> modifier = m_fs->createMetaModifier(target, false);
  if (item.modified.isValid()) modifier->setLastWriteTime(item.modified);
  // POSIX keeps read-only in the mode bits; elsewhere the attributes carry it.
  if (item.mode >= 0) {
    modifier->setPosixMode(item.mode & 07777);
  } else {
    modifier->setAttributes(item.attributes);
  }
  modifier->commit();
}

void CBackupRun::finishFolders() {
  if (m_options.dryRun) return;
  // Children first: writing into a folder changes its time, and a folder
  // without write permission takes no more children.
  for (auto it = m_folders.rbegin(); it != m_folders.rend(); ++it) {
    try {
      applyMetaData(targetOf(it->relative), *it);
    } catch (std::exception const& e) {
      ++m_totals.foldersFailed;
      reportFailure(it->relative, e, u"Cannot set the folder's times and permissions");
    }
  }
}

bool CBackupRun::isUnchanged(File const& file, CURI const& target) {
  if (!m_options.incremental || !file.modified.isValid()) return false;
  P<IFileInfoBase> info = m_fs->getFileInfo(target, false);
  return info->isFile() && info->getSize() == file.size && info->getLastWriteTime() == file.modified &&
         (file.mode < 0 || info->getPosixMode() < 0 || (info->getPosixMode() & 07777) == (file.mode & 07777));
}

bool CBackupRun::isListed(String const& relative) {
  std::size_t const slash = relative.str().rfind(u'/');
  String const parent = slash == std::u16string::npos ? String() : String(relative.str().substr(0, slash));
  String const name = slash == std::u16string::npos ? relative : String(relative.str().substr(slash + 1));
  P<qo::IFolderContentsIterator> it = m_fs->getFolderContents(sourceOf(parent));
  P<IFileInfoBase> entry;
  while (it->getNext(entry)) {
    if (entry->getName() == name) return true;
  }
  return false;
}

void CBackupRun::copyFiles() {
  // Files that changed while copied are appended once more; the loop runs
  // until they are done too.
  for (std::size_t i = 0;; ++i) {
    while (i >= m_files.size() && !m_pending.empty()) finishOldest();
    if (i >= m_files.size()) break;
    File const& file = m_files[i];
    showProgress();
    CURI const target = targetOf(file.relative);
    bool unchanged = false;
    try {
      unchanged = !file.retried && isUnchanged(file, target);
    } catch (std::exception const&) {
      // Cannot look at the target: copying will tell what is wrong.
    }
    if (unchanged) {
      ++m_totals.filesUnchanged;
      ++m_progress.filesDone;
      m_bytesOfFinished += file.size;
      verboseLine("unchanged", file.relative);
      continue;
    }
    if (m_options.dryRun) {
      ++m_totals.filesCopied;
      ++m_progress.filesDone;
      m_bytesOfFinished += file.size;
      verboseLine("would copy", file.relative);
      continue;
    }
    while (m_pending.size() >= kInFlightPerWorker * m_storeFs.size()) finishOldest();
    startCopy(file);
  }
}

void CBackupRun::startCopy(File const& file) {
  CURI const source = sourceOf(file.relative);
  Pending pending;
  pending.file = &file;
  pending.target = targetOf(file.relative);
  try {
    makeWritable(pending.target);
    P<qo::IIOStream> in = m_fs->createStream(source, qo::IIOStream::AccessReadOnly,
                                             qo::TFlags<qo::IIOStream::Flags>{qo::IIOStream::FlagSequential});
    pending.source = P<CCountingInStream>(new CCountingInStream(in, m_fs, file, source));
    // The local file system replaces the target only with a complete copy
    // (written under a temporary name in the same folder, private to the
    // owner until the permissions below are set).
    P<qo::IFileSystem> const& storeFs = m_storeFs[m_storeCounter++ % m_storeFs.size()];
    pending.op = storeFs->backgroundStore(pending.target, -1, pending.source.get(), true, nullptr);
  } catch (std::exception const& e) {
    ++m_progress.filesDone;
    m_bytesOfFinished += file.size;
    bool vanished = false;
    try {
      // A name the folder still lists was not deleted: it cannot be reached
      // by its name, and that is a failure.
      vanished = problemOf(e) == CFileSystemError::kNotFound && !m_fs->pathExists(source) && !isListed(file.relative);
    } catch (std::exception const&) {
    }
    if (vanished) {
      ++m_totals.filesVanished;
      reportWarning(file.relative, u"Vanished since the scan, skipped");
    } else {
      ++m_totals.filesFailed;
      reportFailure(file.relative, e, u"Cannot read the file");
    }
    return;
  }
  m_pending.push_back(std::move(pending));
}

void CBackupRun::makeFolderUsable(String const& relative) {
  // The copy of a folder without write permission was given that at the end
  // of the last run; until the end of this one its owner may write it again.
  try {
    P<IFileInfoBase> const info = m_fs->getFileInfo(targetOf(relative), false);
    int const mode = info->getPosixMode();
    if (mode < 0 || (mode & 0700) == 0700) return;
    P<qo::IFileMetaModifier> modifier = m_fs->createMetaModifier(targetOf(relative), false);
    modifier->setPosixMode((mode | 0700) & 07777);
    modifier->commit();
  } catch (std::exception const& e) {
    reportWarning(relative, String(u"Cannot make the folder writable: ") + String::fromUTF8(describe(e)));
  }
}

void CBackupRun::makeWritable(CURI const& target) {
  // The copy of a read-only file is read-only too; the file system does not
  // replace what it may not write, so the next copy first lifts that.
  P<IFileInfoBase> const info = m_fs->getFileInfo(target, false);
  if (!info->isFile() || !info->getAttributes().has(IFileInfoBase::AttrReadOnly)) return;
  P<qo::IFileMetaModifier> modifier = m_fs->createMetaModifier(target, false);
  qo::TFlags<IFileInfoBase::Attribute> attributes = info->getAttributes();
  attributes.set(IFileInfoBase::AttrReadOnly, false);
  modifier->setAttributes(attributes);
  modifier->commit();
}

void CBackupRun::finishOldest() {
  Pending pending = m_pending.front();
  m_pending.pop_front();
  while (!pending.op->waitFinished(kWaitSliceMs)) showProgress();
  long long const copied = pending.source->getCount();
  pending.source->close();
  File const& file = *pending.file;
  try {
    pending.op->throwErrorIfFailed();
    applyMetaData(pending.target, file);
    ++m_totals.filesCopied;
    m_totals.bytesCopied += copied;
    verboseLine("copied", file.relative);
  } catch (CError const& e) {
    m_totals.bytesCopied += copied;  // read and written all the same
    if (!isChangedError(e)) {
      ++m_totals.filesFailed;
      reportFailure(file.relative, e, u"Cannot copy the file");
    } else if (!file.retried) {
      requeueChanged(file);
      return;  // counted when the second copy ends
    } else {
      ++m_totals.filesChanged;
      reportWarning(file.relative, u"Changed while it was copied (twice); the earlier copy is kept");
    }
  }
  ++m_progress.filesDone;
  m_bytesOfFinished += file.size;
}

void CBackupRun::copyLinks() {
  for (Link const& link : m_links) {
    ++m_progress.filesDone;
    CURI const target = targetOf(link.relative);
    try {
      P<IFileInfoBase> const existing = m_fs->getFileInfo(target, false);
      if (existing->isLink() && existing->getLinkTarget() == link.text &&
          (!link.modified.isValid() || existing->getLastWriteTime() == link.modified)) {
        ++m_totals.filesUnchanged;
        verboseLine("unchanged", link.relative);
        continue;
      }
      if (m_options.dryRun) {
        ++m_totals.filesCopied;
        verboseLine("would copy", link.relative);
        continue;
      }
      // Made under a name of its own beside the target, then renamed over
      // it: the target is the old entry or the new link at every moment.
      CURI const temporary = target.getParent() << (String(u"~qo-backup-") + m_runId + u"-" +
                                                    qo::toString(++m_linkCounter) + u".tmp");
      CURI const text = link.text.StartsWith(u"/") || qo::localPathsAreWindowsPaths()
                            ? qo::CLocalFileSystem::toURI(link.text, false)
                            : CURI(CURI::escape(link.text, false, u"/"));
      if (link.toFolder) {
        m_fs->createFolderSymLink(temporary, text);
      } else {
        m_fs->createFileSymLink(temporary, text);
      }
      try {
        if (link.modified.isValid()) {
          P<qo::IFileMetaModifier> modifier = m_fs->createMetaModifier(temporary, false);
          modifier->setLastWriteTime(link.modified);
          modifier->commit();
        }
        m_fs->moveFileOrFolder(temporary, target, true);
      } catch (std::exception const&) {
        m_fs->deleteSymLink(temporary);
        throw;
      }
      ++m_totals.filesCopied;
      verboseLine("copied", link.relative);
    } catch (std::exception const& e) {
      ++m_totals.filesFailed;
      reportFailure(link.relative, e, u"Cannot copy the link");
    }
  }
}

void CBackupRun::requeueChanged(File const& file) {
  // Copied once more with what the file is now; the first copy was dropped.
  File again = file;
  again.retried = true;
  try {
    P<IFileInfoBase> const info = m_fs->getFileInfo(sourceOf(file.relative), true);
    again.size = info->getSize();
    again.modified = info->getLastWriteTime();
    again.mode = info->getPosixMode();
    again.attributes = info->getAttributes();
    readOwner(file.relative, again);
  } catch (std::exception const&) {
    // Opening it again tells what is wrong.
  }
  m_totals.bytesSeen += again.size - file.size;
  m_progress.bytesTotal = m_totals.bytesSeen;
  m_files.push_back(again);
}

// --- reporting ---------------------------------------------------------------

void CBackupRun::showProgress(bool force) {
  long long inFlight = 0;
  for (Pending const& pending : m_pending) inFlight += pending.source->getCount();
  m_progress.bytesDone = m_bytesOfFinished + inFlight;
  m_progress.bytesCopied = m_totals.bytesCopied + inFlight;
  m_console.show(m_progress, force);
}

void CBackupRun::reportFailure(String const& relative, std::exception const& e, String const& what) {
  String const path = relative.isEmpty() ? String(u".") : relative;
  m_console.line("error: " + utf8(path) + ": " + utf8(what) + ": " + describe(e), true);
  // The log gets the name as people read it: a byte that is not UTF-8 as "\xNN".
  if (!m_options.dryRun) {
    qo::logError(e, what + u": " + String::fromUTF8(printable(path)),
                 sourceOf(relative).toString(true) + u" -> " + targetOf(relative).toString(true));
  }
}

void CBackupRun::reportWarning(String const& relative, String const& what) {
  m_console.line("warning: " + utf8(relative) + ": " + utf8(what), true);
  if (!m_options.dryRun) qo::logWarning(what + u": " + String::fromUTF8(printable(relative)));
}

void CBackupRun::verboseLine(char const* action, String const& relative) {
  if (m_options.verbose) m_console.line(std::string(action) + ": " + utf8(relative));
}

}  // namespace qobackup

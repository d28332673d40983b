#include "qo/fs/CLocalFileSystem.h"

#include "qo/core/CBadPathError.h"
#include "qo/core/CError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSystemError.h"
#include "qo/core/CTime.h"
#include "qo/core/ErrorLog.h"
#include "qo/fs/CFileInfo.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/LocalFile.h"
#include "qo/fs/TPathImpl.h"
#include "qo/platform/File.h"
#include "qo/platform/FileSystem.h"
#include "qo/thread/CBackgroundOpThread.h"
#include "qo/thread/CMutexLock.h"

#include "qo/stream/IInStream.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace qo {

using platform::FsErrorKind;
using platform::FsKind;
using platform::FsStat;
using platform::SysError;

namespace {

bool windowsPaths() { return platform::fileUsesWindowsPaths(); }

CProps uriProps(char const* action, CURI const& uri, CURI const* uri2) {
  CProps props;
  props.add(CIOError::paramURI(), uri.toString(true));
  if (uri2) props.add(u"uri2", uri2->toString(true));
  props.add(u"action", String(action));
  return props;
}

int problemOf(FsErrorKind kind) {
  switch (kind) {
    case FsErrorKind::NotFound: return CFileSystemError::kNotFound;
    case FsErrorKind::AlreadyExists: return CFileSystemError::kAlreadyExists;
    case FsErrorKind::AccessDenied: return CFileSystemError::kAccessDenied;
    case FsErrorKind::WrongKind: return CFileSystemError::kWrongKind;
    case FsErrorKind::NotEmpty: return CFileSystemError::kNotEmpty;
    case FsErrorKind::NoSpace: return CFileSystemError::kNoSpace;
    case FsErrorKind::InUse: return CFileSystemError::kLockConflict;
    case FsErrorKind::CrossDevice:
    case FsErrorKind::Unsupported:
    case FsErrorKind::InvalidName: return CFileSystemError::kUnsupported;
    case FsErrorKind::Other: break;
  }
  return CFileSystemError::kUnknown;
}

// A failure found by the file system itself, not reported by the OS.
[[noreturn]] void throwProblem(int problem, char const* action, CURI const& uri, CURI const* uri2 = nullptr) {
  CFileSystemError error(problem, String(), uriProps(action, uri, uri2));
  error.addTrace(String("CLocalFileSystem::") + String(action));
  throw error;
}

// The OS's failure: a CFileSystemError when its reason is one callers branch
// on, else a CIOError of ioKind; either way with the system error as cause.
[[noreturn]] void throwOsError(SysError const& e, long long ioKind, char const* action, char const* api,
                               CURI const& uri, CURI const* uri2 = nullptr) {
  CSystemError const cause(u"A file-system call of the system failed.", String("CLocalFileSystem::") + String(action),
                           String(api), e.code, String::wstringFromUTF8WithLatin1Fallback(e.text));
  String const trace = String("CLocalFileSystem::") + String(action);
  int const problem = problemOf(platform::fsErrorKind(e));
  if (problem != CFileSystemError::kUnknown) {
    CFileSystemError error(problem, String(), uriProps(action, uri, uri2), &cause);
    error.addTrace(trace);
    throw error;
  }
  CIOError error(ioKind, String(), uriProps(action, uri, uri2), &cause);
  error.addTrace(trace);
  throw error;
}

std::u16string nativeOf(CURI const& uri) { return CLocalFileSystem::toNativePath(uri).str(); }

FsStat statOf(CURI const& uri, bool followLinks, char const* action) {
  FsStat st;
  if (SysError e = platform::fsStat(nativeOf(uri), followLinks, st)) {
    throwOsError(e, CIOError::kReadFailed, action, "stat", uri);
  }
  return st;
}

CTime timeOf(long long micros) { return micros == platform::kFsNoTime ? CTime::invalid() : CTime::fromMicros(micros); }
long long microsOf(CTime time) { return time.isValid() ? time.getMicros() : platform::kFsNoTime; }

IFileInfoBase::Kind kindOf(FsKind kind) {
  switch (kind) {
    case FsKind::None: return IFileInfoBase::KindNone;
    case FsKind::File: return IFileInfoBase::KindFile;
    case FsKind::Folder: return IFileInfoBase::KindFolder;
    case FsKind::SymLink: return IFileInfoBase::KindSymLink;
    case FsKind::Junction: return IFileInfoBase::KindJunction;
    case FsKind::Other: break;
  }
  return IFileInfoBase::KindOther;
}

bool isFolderLink(FsStat const& st) {
  return st.kind == FsKind::Junction || (st.kind == FsKind::SymLink && st.linkToFolder);
}

P<IFileInfoBase> makeInfo(CURI const& uri, FsStat const& st, String const* name) {
  P<CFileInfo> info = newP<CFileInfo>(uri);
  if (name) info->setName(*name);
  info->setKind(kindOf(st.kind));
  if (st.kind == FsKind::None) return info;
  TFlags<IFileInfoBase::Attribute> attributes;
  attributes.set(IFileInfoBase::AttrReadOnly, (st.attributes & platform::kFsAttrReadOnly) != 0);
  attributes.set(IFileInfoBase::AttrHidden, (st.attributes & platform::kFsAttrHidden) != 0);
  attributes.set(IFileInfoBase::AttrSystem, (st.attributes & platform::kFsAttrSystem) != 0);
  attributes.set(IFileInfoBase::AttrArchive, (st.attributes & platform::kFsAttrArchive) != 0);
  info->setSize(st.size)
      .setCreationTime(timeOf(st.creationMicros))
      .setLastWriteTime(timeOf(st.writeMicros))
      .setLastAccessTime(timeOf(st.accessMicros))
      .setAttributes(attributes)
      .setPosixMode(st.posixMode)
      .setLinkTarget(String(st.linkTarget))
      .setLinkToFolder(st.linkToFolder)
      .setVolumeId(st.volumeId)
      .setFileId(st.fileId)
      .setHardLinkCount(st.linkCount);
  return info;
}

// Removes the object at uri with remove, after looking at it without
// following links: wrongKind says which objects remove must not touch
// (the OS would remove some of them, or refuse with a vague error).
template <class WrongKind>
void removeObject(CURI const& uri, bool ignoreMissing, char const* action, char const* api, WrongKind wrongKind,
                  SysError (*remove)(std::u16string const&)) {
  FsStat const st = statOf(uri, false, action);
  if (st.kind == FsKind::None) {
    if (ignoreMissing) return;
    throwProblem(CFileSystemError::kNotFound, action, uri);
  }
  if (wrongKind(st)) throwProblem(CFileSystemError::kWrongKind, action, uri);
  if (SysError e = remove(nativeOf(uri))) {
    // Gone meanwhile: what the caller wanted.
    if (ignoreMissing && platform::fsErrorKind(e) == FsErrorKind::NotFound) return;
    throwOsError(e, CIOError::kDeleteFailed, action, api, uri);
  }
}

char16_t const kTemporaryPrefix[] = u"~qo-";
char16_t const kTemporarySuffix[] = u".tmp";
constexpr std::size_t kTemporaryDigits = 16;

// A name no other store, in this process or another, picks: a random start
// per process, then a counter, both mixed so that the names look unrelated.
String temporaryName() {
  static std::atomic<std::uint64_t> next{[] {
    std::random_device device;
    std::uint64_t const seed = (static_cast<std::uint64_t>(device()) << 32) ^ device();
    return seed ^ static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()) ^
           reinterpret_cast<std::uintptr_t>(&next);
  }()};
  std::uint64_t x = next.fetch_add(0x9E3779B97F4A7C15ULL, std::memory_order_relaxed);
  x ^= x >> 30, x *= 0xBF58476D1CE4E5B9ULL, x ^= x >> 27, x *= 0x94D049BB133111EBULL, x ^= x >> 31;
  std::u16string digits(kTemporaryDigits, u'0');
  for (std::size_t i = 0; i < kTemporaryDigits; ++i) digits[i] = u"0123456789abcdef"[(x >> (4 * i)) & 15];
  return String(kTemporaryPrefix) + String(digits) + kTemporarySuffix;
}

// A file being written under a temporary name beside its target; deleted
// unless it was renamed into place.
class CTemporaryFile {
public:
  explicit CTemporaryFile(CURI const& target) {
    CURI const folder = target.getParent();
    platform::FileOpenOptions options;
    options.write = true;
    options.creation = platform::FileOpenOptions::CreateNew;
    options.sequential = true;
    options.ownerOnly = true;
    for (int attempt = 0;; ++attempt) {
      m_uri = folder << temporaryName();
      m_path = nativeOf(m_uri);
      SysError const e = platform::fileOpen(m_path.data(), m_path.size(), options, m_handle);
      if (!e) return;
      if (attempt < 10 && platform::fileErrorKind(e) == platform::FileErrorKind::AlreadyExists) continue;
      throw detail::makeLocalFileError(CIOError::kOpenFailed, "CLocalFileSystem::storeFile", "open", e, target,
                                       CProps().add(u"temporary", m_uri.toString(true)));
    }
  }
  ~CTemporaryFile() {
    platform::fileClose(m_handle);
    if (!m_kept) platform::fileDelete(m_path.data(), m_path.size());
  }
  CTemporaryFile(CTemporaryFile const&) = delete;
  CTemporaryFile& operator=(CTemporaryFile const&) = delete;

  // Writes size bytes; a run of zeros is skipped instead, so that the
  // holes of a sparse source stay holes (the file system fills what is
  // skipped with zeros, and replace() sets the final length).
  void write(void const* data, std::size_t size, CURI const& target) {
    auto const* bytes = static_cast<unsigned char const*>(data);
    if (size >= kMinHole && std::all_of(bytes, bytes + size, [](unsigned char b) { return b == 0; })) {
      m_length += static_cast<long long>(size);
      if (SysError e = platform::fileSeek(m_handle, m_length)) fail(e, "seek", target);
      return;
    }
    if (SysError e = platform::fileWrite(m_handle, data, size)) fail(e, "write", target);
    m_length += static_cast<long long>(size);
    m_written = m_length;
  }
  // Flushes and closes the file, then renames it over target.
  void replace(CURI const& target, bool overwrite, char const* action) {
    if (m_written < m_length) {
      if (SysError e = platform::fileSetSize(m_handle, m_length)) fail(e, "truncate", target);
    }
    if (SysError e = platform::fileFlush(m_handle)) fail(e, "flush", target);
    platform::FileHandle const handle = m_handle;
    m_handle = nullptr;
    if (SysError e = platform::fileClose(handle)) fail(e, "close", target);
    if (SysError e = platform::fsReplaceFile(m_path, nativeOf(target), overwrite)) {
      throwOsError(e, CIOError::kWriteFailed, action, "rename", target, &m_uri);
    }
    m_kept = true;
  }
  std::u16string const& path() const { return m_path; }

private:
  [[noreturn]] void fail(SysError const& e, char const* api, CURI const& target) {
    throw detail::makeLocalFileError(CIOError::kWriteFailed, "CLocalFileSystem::storeFile", api, e, target,
                                     CProps().add(u"temporary", m_uri.toString(true)));
  }

  static constexpr std::size_t kMinHole = 4096;

  CURI m_uri;
  std::u16string m_path;
  platform::FileHandle m_handle = nullptr;
  bool m_kept = false;
  long long m_length = 0;   // bytes stored so far, holes included
  long long m_written = 0;  // the end of the last bytes written
};

// Refuses, as opening the target to write it would, a target that must not
// or cannot be replaced: an existing one without overwrite, a folder, a file
// this process may not write (or, on Windows, one open without sharing).
void checkStoreTarget(CURI const& target, bool overwrite) {
  FsStat const st = statOf(target, false, "storeFile");
  if (st.kind == FsKind::None) return;
  CProps props;
  props.add(u"action", String(u"storeFile"));
  if (!overwrite) {
    props.addLong(CFileSystemError::paramFileSysProblem(), CFileSystemError::kAlreadyExists);
    props.add(CIOError::paramURI(), target.toString(true));
    CIOError error(CIOError::kOpenFailed, String(), props);
    error.addTrace(u"CLocalFileSystem::storeFile");
    throw error;
  }
  std::u16string const path = nativeOf(target);
  platform::FileOpenOptions options;
  options.write = true;
  options.shareRead = options.shareWrite = options.shareDelete = true;
  platform::FileHandle probe = nullptr;
  SysError e = platform::fileOpen(path.data(), path.size(), options, probe);
  if (!e) e = platform::fileClose(probe);
  if (e) throw detail::makeLocalFileError(CIOError::kOpenFailed, "CLocalFileSystem::storeFile", "open", e, target, props);
}

void checkStoreArguments(IInStream* source, long long length, char16_t const* place) {
  if (!source) throw CInvalidArgError(place, u"the source stream is null");
  if (length < -1) throw CInvalidArgError(place, u"the length is below -1", CProps().addLong(u"length", length));
}

void checkName(String const& name, char const* place) {
  bool bad = name.isEmpty() || name == u"." || name == u"..";
  for (std::size_t i = 0; !bad && i < name.length(); ++i) {
    bad = name[i] == u'/' || name[i] == 0 || (windowsPaths() && (name[i] == u'\\' || name[i] == u':'));
  }
  if (bad) throw CInvalidArgError(String(place), u"the name is empty or not a single path component",
                                  CProps().add(u"name", name));
}

// The text a symbolic link stores for target: a relative reference stays
// relative (so that the link survives moving its folder), anything else
// becomes the absolute native path.
String linkTextOf(CURI const& link, CURI const& target) {
  if (!target.hasScheme() && !target.hasAuthority() && !target.isAbsolute()) {
    String text = target.getPath();
    if (text.isEmpty()) {
      throw CInvalidArgError(u"CLocalFileSystem::createSymLink", u"the link target is empty",
                             CProps().add(u"uri", link.toString(true)));
    }
    if (windowsPaths()) text = text.Replace(u"/", u"\\");
    return text;
  }
  return CLocalFileSystem::toNativePath(target.hasScheme() ? target : CURI(link, target));
}

}  // namespace

// --- folder listing --------------------------------------------------------------

class CLocalFileSystem::CFolderIterator : public CBase, public virtual IFolderContentsIterator {
public:
  CFolderIterator(CURI const& folder, platform::FsFolder* handle) : m_folder(folder), m_handle(handle) {}
  ~CFolderIterator() override { platform::fsFolderClose(m_handle); }
  CFolderIterator(CFolderIterator const&) = delete;
  CFolderIterator& operator=(CFolderIterator const&) = delete;

  bool getNext(P<IFileInfoBase>& out) override {
    out = nil;
    if (!m_handle) return false;
    std::u16string name;
    FsStat st;
    bool done = false;
    if (SysError e = platform::fsFolderNext(m_handle, name, st, done)) {
      throwOsError(e, CIOError::kReadFailed, "getFolderContents", "readdir", m_folder);
    }
    if (done) {
      // Closed at once: a caller that keeps the iterator must not keep the
      // folder open (Windows could not delete it meanwhile).
      platform::fsFolderClose(m_handle);
      m_handle = nullptr;
      return false;
    }
    String const entryName(std::move(name));
    out = makeInfo(m_folder << entryName, st, &entryName);
    return true;
  }

private:
  CURI m_folder;
  platform::FsFolder* m_handle;
};

// --- meta-data modifier ------------------------------------------------------------

class CLocalFileSystem::CMetaModifier : public CBase, public virtual IFileMetaModifier {
public:
  CMetaModifier(CURI const& uri, bool followLinks) : m_uri(uri), m_path(nativeOf(uri)), m_followLinks(followLinks) {}

  void setCreationTime(CTime time) override { m_creationTime = time; }
  void setLastWriteTime(CTime time) override { m_writeTime = time; }
  void setLastAccessTime(CTime time) override { m_accessTime = time; }
  void setAttributes(TFlags<IFileInfoBase::Attribute> attributes) override {
    m_attributes = attributes;
    m_hasAttributes = true;
  }
  void setPosixMode(int mode) override {
    m_mode = mode;
    m_hasMode = true;
  }

  void commit() override {
    if (m_creationTime.isValid() || m_writeTime.isValid() || m_accessTime.isValid()) {
      SysError e = platform::fsSetTimes(m_path, m_followLinks, microsOf(m_creationTime), microsOf(m_writeTime),
                                        microsOf(m_accessTime));
      if (e) throwOsError(e, CIOError::kWriteFailed, "setTimes", "utimensat", m_uri);
    }
    if (m_hasAttributes) {
      unsigned bits = 0;
      if (m_attributes.has(IFileInfoBase::AttrReadOnly)) bits |= platform::kFsAttrReadOnly;
      if (m_attributes.has(IFileInfoBase::AttrHidden)) bits |= platform::kFsAttrHidden;
      if (m_attributes.has(IFileInfoBase::AttrSystem)) bits |= platform::kFsAttrSystem;
      if (m_attributes.has(IFileInfoBase::AttrArchive)) bits |= platform::kFsAttrArchive;
      if (SysError e = platform::fsSetAttributes(m_path, m_followLinks, bits)) {
        throwOsError(e, CIOError::kWriteFailed, "setAttributes", "chmod", m_uri);
      }
    }
    if (m_hasMode) {
      if (SysError e = platform::fsSetPosixMode(m_path, m_followLinks, m_mode)) {
        throwOsError(e, CIOError::kWriteFailed, "setPosixMode", "chmod", m_uri);
      }
    }
  }

private:
  CURI m_uri;
  std::u16string m_path;
  bool m_followLinks;
  CTime m_creationTime;
  CTime m_writeTime;
  CTime m_accessTime;
  TFlags<IFileInfoBase::Attribute> m_attributes;
  bool m_hasAttributes = false;
  int m_mode = 0;
  bool m_hasMode = false;
};

// --- the file system -----------------------------------------------------------------

CLocalFileSystem::CLocalFileSystem() = default;

CLocalFileSystem::~CLocalFileSystem() {
  P<CBackgroundOpThread> worker;
  {
    CMutexLock lock(m_workerMutex);
    worker.swap(m_worker);
  }
  if (!worker) return;
  // The last job may drop the last reference on the worker thread itself;
  // stop() then does not wait for itself, and the thread object outlives its
  // body by CThread's own rule.
  try {
    worker->stop(false);
  } catch (std::exception const& e) {
    logError(e, u"Exception in destructor of qo::CLocalFileSystem. Ignoring.");
  }
}

String CLocalFileSystem::toNativePath(CURI const& uri) {
  if (uri.getScheme() != u"file") {
    CError const cause(u"The URI scheme is not supported.", String(), -1,
                       CProps().add(CIOError::paramURI(), uri.toString(true)));
    throw CFileSystemError(CFileSystemError::kUnservedURI, String(),
                           CProps().add(CIOError::paramURI(), uri.toString(true)), &cause);
  }
  try {
    if (windowsPaths()) return uri.toWindowsFilePath().toAPIPath();
    return uri.toUnixFilePath().toString();
  } catch (CError const& e) {
    throw CFileSystemError(CFileSystemError::kUnservedURI, String(),
                           CProps().add(CIOError::paramURI(), uri.toString(true)), &e);
  }
}

CURI CLocalFileSystem::toURI(String const& nativePath, bool isFolder) {
  if (windowsPaths()) return CURI(TPathImpl<CWindowsPathTraits>(nativePath), isFolder);
  return CURI(TPathImpl<CUnixPathTraits>(nativePath), isFolder);
}

P<CBackgroundOpThread> CLocalFileSystem::worker() {
  CMutexLock lock(m_workerMutex);
  if (!m_worker) {
    P<CBackgroundOpThread> worker = newP<CBackgroundOpThread>();
    worker->start();  // kept only once it runs, so that a failed start is retried
    m_worker = worker;
  }
  return m_worker;
}

// storeFile on the worker.
class CLocalFileSystem::CStoreJob : public CBackgroundOpThread::CJob {
public:
  CStoreJob(CLocalFileSystem* fs, CURI const& target, long long length, IInStream* source, bool overwrite,
            IDoneListener* listener)
      : CJob(listener), m_target(target), m_length(length), m_overwrite(overwrite) {
    // Shared, not adopted: the caller keeps its references.
    m_fs = fs;
    m_source = source;
  }

  void run(void*, CBackgroundOpThread*) override { m_fs->storeFile(m_target, m_length, m_source.get(), m_overwrite); }

protected:
  void dropReferences() noexcept override {
    m_fs = nil;
    m_source = nil;
  }

private:
  P<CLocalFileSystem> m_fs;
  CURI m_target;
  long long m_length;
  P<IInStream> m_source;
  bool m_overwrite;
};

bool CLocalFileSystem::isTemporaryName(String const& name) {
  std::u16string const& text = name.str();
  std::size_t const prefix = std::char_traits<char16_t>::length(kTemporaryPrefix);
  std::size_t const suffix = std::char_traits<char16_t>::length(kTemporarySuffix);
  if (text.size() != prefix + kTemporaryDigits + suffix || !name.StartsWith(kTemporaryPrefix) ||
      !name.EndsWith(kTemporarySuffix)) {
    return false;
  }
  return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(prefix),
                     text.begin() + static_cast<std::ptrdiff_t>(prefix + kTemporaryDigits),
                     [](char16_t c) { return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f'); });
}

void CLocalFileSystem::storeFile(CURI const& target, long long length, IInStream* source, bool overwrite) {
  checkStoreArguments(source, length, u"CLocalFileSystem::storeFile");
  checkStoreTarget(target, overwrite);
  CTemporaryFile file(target);
  constexpr int kChunk = 64 * 1024;
  std::vector<unsigned char> buffer(kChunk);
  if (length < 0) {
    while (int const got = source->readLax(buffer.data(), kChunk)) file.write(buffer.data(), static_cast<std::size_t>(got), target);
  } else {
    for (long long left = length; left > 0;) {
      int const chunk = static_cast<int>(std::min<long long>(left, kChunk));
      // read() rather than readLax(): a source shorter than promised fails
      // the store instead of leaving a short file.
      source->read(buffer.data(), chunk);
      file.write(buffer.data(), static_cast<std::size_t>(chunk), target);
      left -= chunk;
    }
  }
  file.replace(target, overwrite, "storeFile");
}

P<IBackgroundOp> CLocalFileSystem::backgroundStore(CURI const& target, long long length, IInStream* source,
                                                   bool overwrite, IDoneListener* listener) {
  checkStoreArguments(source, length, u"CLocalFileSystem::backgroundStore");
  return worker()->addJob(P<CBackgroundOpThread::CJob>(new CStoreJob(this, target, length, source, overwrite, listener)));
}

P<IBackgroundOp> CLocalFileSystem::backgroundCreateFolder(CURI const& uri, int options, IDoneListener* listener) {
  return worker()->addCreateFolderJob(this, uri, options, listener);
}

P<IBackgroundOp> CLocalFileSystem::backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                                              IDoneListener* listener) {
  return worker()->addMoveFileJob(this, from, to, overwrite, listener);
}

P<IBackgroundOp> CLocalFileSystem::backgroundDeleteFile(CURI const& uri, IDoneListener* listener) {
  return worker()->addDeleteFileJob(this, uri, listener);
}

P<IFileInfoBase> CLocalFileSystem::getFileInfo(CURI const& uri, bool followLinks) {
  return makeInfo(uri, statOf(uri, followLinks, "getFileInfo"), nullptr);
}

P<IFileMetaModifier> CLocalFileSystem::createMetaModifier(CURI const& uri, bool followLinks) {
  return P<IFileMetaModifier>(new CMetaModifier(uri, followLinks));
}

void CLocalFileSystem::getOwner(CURI const& uri, bool followLinks, long long& owner, long long& group) {
  if (windowsPaths()) throw CNotImplementedError(u"CLocalFileSystem::getOwner");
  FsStat const st = statOf(uri, followLinks, "getOwner");
  if (st.kind == FsKind::None) throwProblem(CFileSystemError::kNotFound, "getOwner", uri);
  owner = st.ownerId;
  group = st.groupId;
}

void CLocalFileSystem::setOwner(CURI const& uri, bool followLinks, long long owner, long long group) {
  if (windowsPaths()) throw CNotImplementedError(u"CLocalFileSystem::setOwner");
  if (SysError e = platform::fsSetOwner(nativeOf(uri), followLinks, owner, group)) {
    throwOsError(e, CIOError::kWriteFailed, "setOwner", "chown", uri);
  }
}

std::vector<std::pair<String, std::string>> CLocalFileSystem::getExtendedAttributes(CURI const& uri, bool followLinks) {
  if (windowsPaths()) throw CNotImplementedError(u"CLocalFileSystem::getExtendedAttributes");
  std::vector<std::pair<std::u16string, std::string>> found;
  if (SysError e = platform::fsGetExtendedAttributes(nativeOf(uri), followLinks, found)) {
    throwOsError(e, CIOError::kReadFailed, "getExtendedAttributes", "listxattr", uri);
  }
  std::vector<std::pair<String, std::string>> out;
  out.reserve(found.size());
  for (auto& [name, value] : found) out.emplace_back(String(name), std::move(value));
  return out;
}

void CLocalFileSystem::setExtendedAttribute(CURI const& uri, bool followLinks, String const& name,
                                            std::string const& value) {
  if (windowsPaths()) throw CNotImplementedError(u"CLocalFileSystem::setExtendedAttribute");
  if (SysError e = platform::fsSetExtendedAttribute(nativeOf(uri), followLinks, name.str(), value)) {
    throwOsError(e, CIOError::kWriteFailed, "setExtendedAttribute", "setxattr", uri);
  }
}

void CLocalFileSystem::setSecurityDescriptor(CURI const& uri, std::string const& descriptor) {
  if (!windowsPaths()) throw CNotImplementedError(u"CLocalFileSystem::setSecurityDescriptor");
  if (SysError e = platform::fsSetSecurity(nativeOf(uri), descriptor)) {
    throwOsError(e, CIOError::kWriteFailed, "setSecurityDescriptor", "SetFileSecurityW", uri);
  }
}

long long CLocalFileSystem::getFileSectorSize(CURI const& uri) {
  long long bytes = -1;
  if (SysError e = platform::fsSectorSize(nativeOf(uri), bytes)) {
    throwOsError(e, CIOError::kReadFailed, "getFileSectorSize", "statvfs", uri);
  }
  return bytes;
}

P<IFolderContentsIterator> CLocalFileSystem::getFolderContents(CURI const& uri) {
  platform::FsFolder* handle = nullptr;
  if (SysError e = platform::fsFolderOpen(nativeOf(uri), handle)) {
    throwOsError(e, CIOError::kReadFailed, "getFolderContents", "opendir", uri);
  }
  return P<IFolderContentsIterator>(new CFolderIterator(uri, handle));
}

P<IIOStream> CLocalFileSystem::createStream(CURI const& uri, IIOStream::Access access,
                                            TFlags<IIOStream::Flags> flags) {
  return newP<CLocalFileStream>(toNativePath(uri), access, flags);
}

P<IIOStream> CLocalFileSystem::createSubDataStream(CURI const& uri, String const& name, IIOStream::Access access,
                                                   TFlags<IIOStream::Flags> flags) {
  if (!platform::fsHasSubStreams()) throw CNotImplementedError(u"CLocalFileSystem::createSubDataStream");
  checkName(name, "CLocalFileSystem::createSubDataStream");
  return newP<CLocalFileStream>(toNativePath(uri) + u":" + name, access, flags);
}

bool CLocalFileSystem::fileExists(CURI const& uri) { return statOf(uri, true, "fileExists").kind == FsKind::File; }

bool CLocalFileSystem::folderExists(CURI const& uri) {
  return statOf(uri, true, "folderExists").kind == FsKind::Folder;
}

bool CLocalFileSystem::pathExists(CURI const& uri) { return statOf(uri, false, "pathExists").kind != FsKind::None; }

bool CLocalFileSystem::quickCheckFolderAccessible(CURI const& uri) {
  try {
    platform::FsFolder* handle = nullptr;
    if (platform::fsFolderOpen(nativeOf(uri), handle)) return false;
    platform::fsFolderClose(handle);
    return true;
  } catch (...) {
    return false;  // a URI that is not ours is not accessible either
  }
}

bool CLocalFileSystem::isFolderEmpty(CURI const& uri) {
  P<IFolderContentsIterator> it = getFolderContents(uri);
  P<IFileInfoBase> entry;
  return !it->getNext(entry);
}

CURI CLocalFileSystem::getVolumeRootPath(CURI const& uri) {
  std::u16string root;
  if (SysError e = platform::fsVolumeRoot(nativeOf(uri), root)) {
    throwOsError(e, CIOError::kReadFailed, "getVolumeRootPath", "GetVolumePathNameW", uri);
  }
  return toURI(String(std::move(root)), true);
}

CURI CLocalFileSystem::createUniqueFilename(CURI const& folder, String const& name) {
  checkName(name, "CLocalFileSystem::createUniqueFilename");
  std::size_t const dot = name.FindLast(u'.');
  // A leading dot starts a name (".profile"), not an extension.
  bool const hasExtension = dot != String::npos && dot > 0;
  String const title = hasExtension ? name.Left(dot) : name;
  String const extension = hasExtension ? name.Mid(dot) : String();
  CURI const first = folder << name;
  if (!pathExists(first)) return first;
  for (int n = 2; n < 10000; ++n) {
    CURI candidate = folder << (title + u" (" + toString(n) + u")" + extension);
    if (!pathExists(candidate)) return candidate;
  }
  throwProblem(CFileSystemError::kAlreadyExists, "createUniqueFilename", first);
}

CURI CLocalFileSystem::createUniqueFolderName(CURI const& folder, String const& name) {
  checkName(name, "CLocalFileSystem::createUniqueFolderName");
  CURI const first = folder << name;
  if (!pathExists(first)) return first;
  for (int n = 2; n < 10000; ++n) {
    CURI candidate = folder << (name + u" (" + toString(n) + u")");
    if (!pathExists(candidate)) return candidate;
  }
  throwProblem(CFileSystemError::kAlreadyExists, "createUniqueFolderName", first);
}

long long CLocalFileSystem::getFreeSpaceInFolder(CURI const& uri) {
  long long bytes = -1;
  if (SysError e = platform::fsFreeSpace(nativeOf(uri), bytes)) {
    throwOsError(e, CIOError::kReadFailed, "getFreeSpaceInFolder", "statvfs", uri);
  }
  return bytes;
}

String CLocalFileSystem::getAccountOrUserNameUsedForAccess(CURI const& uri) {
  (void)toNativePath(uri);  // refuses URIs that are not ours, as every operation does
  std::u16string name;
  if (SysError e = platform::fsUserName(name)) {
    throwOsError(e, CIOError::kReadFailed, "getAccountOrUserNameUsedForAccess", "getpwuid_r", uri);
  }
  return String(std::move(name));
}

P<IFileSystem::CNativeMetaData> CLocalFileSystem::getNativeMetaData(CURI const& uri, bool followLinks,
                                                                    String const& what) {
  std::string format;
  std::string bytes;
  if (SysError e = platform::fsNativeMetaData(nativeOf(uri), followLinks, what.str(), format, bytes)) {
    throwOsError(e, CIOError::kReadFailed, "getNativeMetaData", "stat", uri);
  }
  return newP<CNativeMetaData>(String::fromUTF8(format), bytes.data(), static_cast<long long>(bytes.size()));
}

void CLocalFileSystem::createFolder(CURI const& uri, int options) {
  std::u16string const path = nativeOf(uri);
  if (options & kCreateParents) {
    // Walk up to the first folder that exists, then create downwards.
    std::vector<CURI> missing;
    for (CURI current = uri;;) {
      CURI parent = current.getParent();
      // Above the root there is nothing to create; a root that is missing
      // (an unknown drive) is left to the final call to report.
      if (parent.getPath().length() >= current.getPath().length()) break;
      FsStat st;
      try {
        st = statOf(parent, true, "createFolder");
      } catch (CFileSystemError const& e) {
        if (e.getProblem() == CFileSystemError::kUnservedURI) break;
        throw;
      }
      if (st.kind == FsKind::Folder) break;
      if (st.kind != FsKind::None) throwProblem(CFileSystemError::kWrongKind, "createFolder", parent, &uri);
      missing.push_back(parent);
      current = parent;
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
      SysError e = platform::fsCreateFolder(nativeOf(*it));
      // Another thread may create the same parent meanwhile.
      if (e && !(platform::fsErrorKind(e) == FsErrorKind::AlreadyExists &&
                 statOf(*it, true, "createFolder").kind == FsKind::Folder)) {
        throwOsError(e, CIOError::kWriteFailed, "createFolder", "mkdir", *it, &uri);
      }
    }
  }
  if (SysError e = platform::fsCreateFolder(path)) throwOsError(e, CIOError::kWriteFailed, "createFolder", "mkdir", uri);
}

bool CLocalFileSystem::ensureFolderExists(CURI const& uri, int options) {
  FsStat const st = statOf(uri, true, "ensureFolderExists");
  if (st.kind == FsKind::Folder) return false;
  if (st.kind != FsKind::None) throwProblem(CFileSystemError::kWrongKind, "ensureFolderExists", uri);
  try {
    createFolder(uri, options | kCreateParents);
  } catch (CFileSystemError const& e) {
    if (e.getProblem() != CFileSystemError::kAlreadyExists || !folderExists(uri)) throw;
    return false;  // created by someone else meanwhile
  }
  return true;
}

void CLocalFileSystem::ensureFileExists(CURI const& uri) {
  FsStat const st = statOf(uri, true, "ensureFileExists");
  if (st.kind == FsKind::File) return;
  if (st.kind != FsKind::None) throwProblem(CFileSystemError::kWrongKind, "ensureFileExists", uri);
  CLocalFileStream file(toNativePath(uri), IIOStream::AccessWriteOnly, TFlags<IIOStream::Flags>{IIOStream::FlagCreate});
  file.close();
}

void CLocalFileSystem::createFileHardLink(CURI const& link, CURI const& target) {
  if (statOf(target, false, "createFileHardLink").kind == FsKind::Folder) {
    throwProblem(CFileSystemError::kWrongKind, "createFileHardLink", link, &target);
  }
  if (SysError e = platform::fsCreateHardLink(nativeOf(link), nativeOf(target))) {
    throwOsError(e, CIOError::kWriteFailed, "createFileHardLink", "link", link, &target);
  }
}

void CLocalFileSystem::createFolderHardLink(CURI const& link, CURI const& target) {
  FsStat const st = statOf(target, true, "createFolderHardLink");
  if (st.kind == FsKind::None) throwProblem(CFileSystemError::kNotFound, "createFolderHardLink", link, &target);
  if (st.kind != FsKind::Folder) throwProblem(CFileSystemError::kWrongKind, "createFolderHardLink", link, &target);
  if (SysError e = platform::fsCreateJunction(nativeOf(link), nativeOf(target))) {
    throwOsError(e, CIOError::kWriteFailed, "createFolderHardLink", "FSCTL_SET_REPARSE_POINT", link, &target);
  }
}

void CLocalFileSystem::createFileSymLink(CURI const& link, CURI const& target) {
  if (SysError e = platform::fsCreateSymLink(nativeOf(link), linkTextOf(link, target).str(), false)) {
    throwOsError(e, CIOError::kWriteFailed, "createFileSymLink", "symlink", link, &target);
  }
}

void CLocalFileSystem::createFolderSymLink(CURI const& link, CURI const& target) {
  if (SysError e = platform::fsCreateSymLink(nativeOf(link), linkTextOf(link, target).str(), true)) {
    throwOsError(e, CIOError::kWriteFailed, "createFolderSymLink", "symlink", link, &target);
  }
}

void CLocalFileSystem::deleteFile(CURI const& uri, bool ignoreMissing) {
  removeObject(uri, ignoreMissing, "deleteFile", "unlink",
               [](FsStat const& st) { return st.kind == FsKind::Folder || isFolderLink(st); }, platform::fsDeleteFile);
}

void CLocalFileSystem::deleteSymLink(CURI const& uri) {
  removeObject(uri, false, "deleteSymLink", "unlink",
               [](FsStat const& st) { return st.kind != FsKind::SymLink && st.kind != FsKind::Junction; },
               platform::fsRemoveLink);
}

void CLocalFileSystem::deleteEmptyFolder(CURI const& uri, bool ignoreMissing) {
  removeObject(uri, ignoreMissing, "deleteEmptyFolder", "rmdir",
               [](FsStat const& st) { return st.kind != FsKind::Folder; }, platform::fsRemoveFolder);
}

void CLocalFileSystem::unlinkFolder(CURI const& uri) {
  removeObject(uri, false, "unlinkFolder", "unlink", [](FsStat const& st) { return !isFolderLink(st); },
               platform::fsRemoveLink);
}

void CLocalFileSystem::moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) {
  std::u16string const source = nativeOf(from);
  std::u16string const target = nativeOf(to);
  if (overwrite) {
    // POSIX would let a folder replace an empty folder; neither OS lets a
    // folder be replaced otherwise, so none is. A name that differs only in
    // case on a case-blind volume is the source itself.
    FsStat const existing = statOf(to, false, "moveFileOrFolder");
    if (existing.kind == FsKind::Folder) {
      FsStat const moving = statOf(from, false, "moveFileOrFolder");
      if (moving.fileId == 0 || moving.fileId != existing.fileId || moving.volumeId != existing.volumeId) {
        throwProblem(CFileSystemError::kAlreadyExists, "moveFileOrFolder", from, &to);
      }
    }
  }
  SysError const e = platform::fsRename(source, target, overwrite);
  if (!e) return;
  if (platform::fsErrorKind(e) == FsErrorKind::CrossDevice &&
      statOf(from, false, "moveFileOrFolder").kind == FsKind::File) {
    copyFile(from, to, overwrite);
    deleteFile(from, false);
    return;
  }
  throwOsError(e, CIOError::kMoveFailed, "moveFileOrFolder", "rename", from, &to);
}

void CLocalFileSystem::copyFile(CURI const& from, CURI const& to, bool overwrite) {
  FsStat const existing = statOf(to, false, "copyFile");
  FsStat const source = statOf(from, true, "copyFile");
  bool const sameFile = source.fileId != 0 && source.fileId == existing.fileId && source.volumeId == existing.volumeId;
  if (!overwrite || existing.kind != FsKind::File || source.kind != FsKind::File || sameFile) {
    // Nothing to replace, or a copy the system refuses before it touches
    // the target.
    if (SysError e = platform::fsCopyFile(nativeOf(from), nativeOf(to), overwrite)) {
      throwOsError(e, CIOError::kWriteFailed, "copyFile", "copy", from, &to);
    }
    return;
  }
  // A complete copy under a temporary name, then renamed over the old file.
  CURI const folder = to.getParent();
  for (int attempt = 0;; ++attempt) {
    CURI const temporary = folder << temporaryName();
    std::u16string const path = nativeOf(temporary);
    SysError e = platform::fsCopyFile(nativeOf(from), path, false);
    if (e && attempt < 10 && platform::fsErrorKind(e) == FsErrorKind::AlreadyExists) continue;
    if (e) throwOsError(e, CIOError::kWriteFailed, "copyFile", "copy", from, &to);
    e = platform::fsReplaceFile(path, nativeOf(to), true);
    if (!e) return;
    platform::fsDeleteFile(path);
    throwOsError(e, CIOError::kWriteFailed, "copyFile", "rename", from, &to);
  }
}

}  // namespace qo

#include "qo/fs/CLocalFileSystem.h"

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
#include "qo/fs/LocalFileSystemShared.h"
#include "qo/fs/TPathImpl.h"
#include "qo/platform/File.h"
#include "qo/platform/FileSystem.h"
#include "qo/thread/CBackgroundOpThread.h"
#include "qo/thread/CMutexLock.h"


#include <string>
#include <vector>

namespace qo {

using localfs::nativeOf;
using localfs::statOf;
using localfs::throwOsError;
using localfs::throwProblem;
using localfs::windowsPaths;
using platform::FsErrorKind;
using platform::FsKind;
using platform::FsStat;
using platform::SysError;

namespace localfs {

bool windowsPaths() { return platform::fileUsesWindowsPaths(); }

namespace {

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

}  // namespace

// A failure found by the file system itself, not reported by the OS.
void throwProblem(int problem, char const* action, CURI const& uri, CURI const* uri2) {
  CFileSystemError error(problem, String(), uriProps(action, uri, uri2));
  error.addTrace(String("CLocalFileSystem::") + String(action));
  throw error;
}

// The OS's failure: a CFileSystemError when its reason is one callers branch
// on, else a CIOError of ioKind; either way with the system error as cause.
void throwOsError(SysError const& e, long long ioKind, char const* action, char const* windowsApi, CURI const& uri,
                  CURI const* uri2) {
  CSystemError const cause(u"A file-system call of the system failed.", String("CLocalFileSystem::") + String(action),
                           String(windowsApi), e);
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
    throwOsError(e, CIOError::kReadFailed, action, "GetFileAttributesExW", uri);
  }
  return st;
}

}  // namespace localfs

namespace {

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

void checkName(String const& name, char const* place) {
  bool bad = name.isEmpty() || name == u"." || name == u"..";
  for (std::size_t i = 0; !bad && i < name.length(); ++i) {
    bad = name[i] == u'/' || name[i] == 0 || (windowsPaths() && (name[i] == u'\\' || name[i] == u':'));
  }
  if (bad) throw CInvalidArgError(String(place), u"the name is empty or not a single path component",
                                  CProps().add(u"name", name));
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
      throwOsError(e, CIOError::kReadFailed, "getFolderContents", "FindNextFileW", m_folder);
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
      if (e) throwOsError(e, CIOError::kWriteFailed, "setTimes", "SetFileTime", m_uri);
    }
    if (m_hasAttributes) {
      unsigned bits = 0;
      if (m_attributes.has(IFileInfoBase::AttrReadOnly)) bits |= platform::kFsAttrReadOnly;
      if (m_attributes.has(IFileInfoBase::AttrHidden)) bits |= platform::kFsAttrHidden;
      if (m_attributes.has(IFileInfoBase::AttrSystem)) bits |= platform::kFsAttrSystem;
      if (m_attributes.has(IFileInfoBase::AttrArchive)) bits |= platform::kFsAttrArchive;
      if (SysError e = platform::fsSetAttributes(m_path, m_followLinks, bits)) {
        throwOsError(e, CIOError::kWriteFailed, "setAttributes", "SetFileAttributesW", m_uri);
      }
    }
    if (m_hasMode) {
      if (SysError e = platform::fsSetPosixMode(m_path, m_followLinks, m_mode)) {
        throwOsError(e, CIOError::kWriteFailed, "setPosixMode", "SetFileAttributesW", m_uri);
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
    throwOsError(e, CIOError::kReadFailed, "getFileSectorSize", "GetDiskFreeSpaceW", uri);
  }
  return bytes;
}

P<IFolderContentsIterator> CLocalFileSystem::getFolderContents(CURI const& uri) {
  platform::FsFolder* handle = nullptr;
  if (SysError e = platform::fsFolderOpen(nativeOf(uri), handle)) {
    throwOsError(e, CIOError::kReadFailed, "getFolderContents", "FindFirstFileExW", uri);
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
    throwOsError(e, CIOError::kReadFailed, "getFreeSpaceInFolder", "GetDiskFreeSpaceExW", uri);
  }
  return bytes;
}

String CLocalFileSystem::getAccountOrUserNameUsedForAccess(CURI const& uri) {
  (void)toNativePath(uri);  // refuses URIs that are not ours, as every operation does
  std::u16string name;
  if (SysError e = platform::fsUserName(name)) {
    throwOsError(e, CIOError::kReadFailed, "getAccountOrUserNameUsedForAccess", "GetUserNameW", uri);
  }
  return String(std::move(name));
}

P<IFileSystem::CNativeMetaData> CLocalFileSystem::getNativeMetaData(CURI const& uri, bool followLinks,
                                                                    String const& what) {
  std::string format;
  std::string bytes;
  if (SysError e = platform::fsNativeMetaData(nativeOf(uri), followLinks, what.str(), format, bytes)) {
    throwOsError(e, CIOError::kReadFailed, "getNativeMetaData", "GetFileInformationByHandle", uri);
  }
  return newP<CNativeMetaData>(String::fromUTF8(format), bytes.data(), static_cast<long long>(bytes.size()));
}

}  // namespace qo

#include "qo/fs/CDelegatingFileSystemBase.h"

#include "qo/core/CError.h"
#include "qo/core/CFileSystemError.h"
#include "qo/core/CProps.h"

namespace qo {

CDelegatingFileSystemBase::CDelegatingFileSystemBase() = default;

CDelegatingFileSystemBase::~CDelegatingFileSystemBase() = default;

P<IFileSystem> CDelegatingFileSystemBase::getFileSystemForTwo(CURI const& uri1, CURI const& uri2,
                                                             bool allowRelativeSecond) {
  P<IFileSystem> first = getFileSystem(uri1);
  if (allowRelativeSecond && !uri2.hasScheme()) return first;
  P<IFileSystem> second = getFileSystem(uri2);
  if (first == second) return first;
  CError const cause(u"Objects are on different file systems.", String(), -1,
                     CProps().add(u"uri1", uri1.toString(true)).add(u"uri2", uri2.toString(true)));
  throw CFileSystemError(CFileSystemError::kUnservedURI, &cause);
}

P<IBackgroundOp> CDelegatingFileSystemBase::backgroundStore(CURI const& target, long long length, IInStream* source,
                                                            bool overwrite, IDoneListener* listener) {
  return getFileSystem(target)->backgroundStore(target, length, source, overwrite, listener);
}

P<IBackgroundOp> CDelegatingFileSystemBase::backgroundCreateFolder(CURI const& uri, int options,
                                                                   IDoneListener* listener) {
  return getFileSystem(uri)->backgroundCreateFolder(uri, options, listener);
}

P<IBackgroundOp> CDelegatingFileSystemBase::backgroundMoveFileOrFolder(CURI const& from, CURI const& to,
                                                                       bool overwrite, IDoneListener* listener) {
  return getFileSystemForTwo(from, to, false)->backgroundMoveFileOrFolder(from, to, overwrite, listener);
}

P<IBackgroundOp> CDelegatingFileSystemBase::backgroundDeleteFile(CURI const& uri, IDoneListener* listener) {
  return getFileSystem(uri)->backgroundDeleteFile(uri, listener);
}

P<IFileInfoBase> CDelegatingFileSystemBase::getFileInfo(CURI const& uri, bool followLinks) {
  return getFileSystem(uri)->getFileInfo(uri, followLinks);
}

P<IFileMetaModifier> CDelegatingFileSystemBase::createMetaModifier(CURI const& uri, bool followLinks) {
  return getFileSystem(uri)->createMetaModifier(uri, followLinks);
}

long long CDelegatingFileSystemBase::getFileSectorSize(CURI const& uri) {
  return getFileSystem(uri)->getFileSectorSize(uri);
}

P<IFolderContentsIterator> CDelegatingFileSystemBase::getFolderContents(CURI const& uri) {
  return getFileSystem(uri)->getFolderContents(uri);
}

P<IIOStream> CDelegatingFileSystemBase::createStream(CURI const& uri, IIOStream::Access access,
                                                     TFlags<IIOStream::Flags> flags) {
  return getFileSystem(uri)->createStream(uri, access, flags);
}

P<IIOStream> CDelegatingFileSystemBase::createSubDataStream(CURI const& uri, String const& name,
                                                            IIOStream::Access access,
                                                            TFlags<IIOStream::Flags> flags) {
  return getFileSystem(uri)->createSubDataStream(uri, name, access, flags);
}

void CDelegatingFileSystemBase::createFolder(CURI const& uri, int options) {
  getFileSystem(uri)->createFolder(uri, options);
}

bool CDelegatingFileSystemBase::ensureFolderExists(CURI const& uri, int options) {
  return getFileSystem(uri)->ensureFolderExists(uri, options);
}

void CDelegatingFileSystemBase::ensureFileExists(CURI const& uri) { getFileSystem(uri)->ensureFileExists(uri); }

void CDelegatingFileSystemBase::createFileHardLink(CURI const& link, CURI const& target) {
  getFileSystemForTwo(link, target, false)->createFileHardLink(link, target);
}

void CDelegatingFileSystemBase::createFolderHardLink(CURI const& link, CURI const& target) {
  getFileSystemForTwo(link, target, false)->createFolderHardLink(link, target);
}

void CDelegatingFileSystemBase::createFileSymLink(CURI const& link, CURI const& target) {
  getFileSystemForTwo(link, target, true)->createFileSymLink(link, target);
}

void CDelegatingFileSystemBase::createFolderSymLink(CURI const& link, CURI const& target) {
  getFileSystemForTwo(link, target, true)->createFolderSymLink(link, target);
}

bool CDelegatingFileSystemBase::fileExists(CURI const& uri) { return getFileSystem(uri)->fileExists(uri); }

bool CDelegatingFileSystemBase::folderExists(CURI const& uri) { return getFileSystem(uri)->folderExists(uri); }

bool CDelegatingFileSystemBase::pathExists(CURI const& uri) { return getFileSystem(uri)->pathExists(uri); }

bool CDelegatingFileSystemBase::quickCheckFolderAccessible(CURI const& uri) {
  return getFileSystem(uri)->quickCheckFolderAccessible(uri);
}

bool CDelegatingFileSystemBase::isFolderEmpty(CURI const& uri) { return getFileSystem(uri)->isFolderEmpty(uri); }

void CDelegatingFileSystemBase::deleteFile(CURI const& uri, bool ignoreMissing) {
  getFileSystem(uri)->deleteFile(uri, ignoreMissing);
}

void CDelegatingFileSystemBase::deleteSymLink(CURI const& uri) { getFileSystem(uri)->deleteSymLink(uri); }

void CDelegatingFileSystemBase::deleteEmptyFolder(CURI const& uri, bool ignoreMissing) {
  getFileSystem(uri)->deleteEmptyFolder(uri, ignoreMissing);
}

void CDelegatingFileSystemBase::unlinkFolder(CURI const& uri) { getFileSystem(uri)->unlinkFolder(uri); }

CURI CDelegatingFileSystemBase::getVolumeRootPath(CURI const& uri) {
  return getFileSystem(uri)->getVolumeRootPath(uri);
}

CURI CDelegatingFileSystemBase::createUniqueFilename(CURI const& folder, String const& name) {
  return getFileSystem(folder)->createUniqueFilename(folder, name);
}

CURI CDelegatingFileSystemBase::createUniqueFolderName(CURI const& folder, String const& name) {
  return getFileSystem(folder)->createUniqueFolderName(folder, name);
}

void CDelegatingFileSystemBase::moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) {
  getFileSystemForTwo(from, to, false)->moveFileOrFolder(from, to, overwrite);
}

void CDelegatingFileSystemBase::copyFile(CURI const& from, CURI const& to, bool overwrite) {
  getFileSystemForTwo(from, to, false)->copyFile(from, to, overwrite);
}

long long CDelegatingFileSystemBase::getFreeSpaceInFolder(CURI const& uri) {
  return getFileSystem(uri)->getFreeSpaceInFolder(uri);
}

String CDelegatingFileSystemBase::getAccountOrUserNameUsedForAccess(CURI const& uri) {
  return getFileSystem(uri)->getAccountOrUserNameUsedForAccess(uri);
}

P<IFileSystem::CNativeMetaData> CDelegatingFileSystemBase::getNativeMetaData(CURI const& uri, bool followLinks,
                                                                             String const& what) {
  return getFileSystem(uri)->getNativeMetaData(uri, followLinks, what);
}

}  // namespace qo

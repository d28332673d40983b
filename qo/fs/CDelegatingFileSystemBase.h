// qo/fs/CDelegatingFileSystemBase.h - an IFileSystem that passes every call
// on to another file system.
//
// Subclasses choose the target: getFileSystem(uri) for operations on one
// object, getFileSystemForTwo(uri1, uri2, allowRelativeSecond) for the
// operations that name two (move, copy, the links). Every argument is passed
// on unchanged and every error of the target passes through unchanged. The
// hub (route by scheme) and wrappers (retry, log ...) are built on it; a
// wrapper overrides just the operations it changes.
//
//   class CLoggingFileSystem : public CDelegatingFileSystemBase {
//     P<IFileSystem> getFileSystem(CURI const&) override { return m_inner; }
//     void deleteFile(CURI const& uri, bool ignoreMissing) override {
//       log(uri); CDelegatingFileSystemBase::deleteFile(uri, ignoreMissing);
//     }
//   };
//
// The symbolic-link operations let the link target be a relative URI
// without a scheme (allowRelativeSecond = true); move, copy and the hard
// links need both objects on one file system.
#ifndef QO_FS_CDELEGATINGFILESYSTEMBASE_H
#define QO_FS_CDELEGATINGFILESYSTEMBASE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/fs/IFileSystem.h"

namespace qo {

/// Forwards every IFileSystem operation. Thread-safe as far as the
/// subclass's choice of target is.
class QO_API CDelegatingFileSystemBase : public CBase, public virtual IFileSystem {
public:
  ~CDelegatingFileSystemBase() override;

  P<IBackgroundOp> backgroundStore(CURI const& target, long long length, IInStream* source, bool overwrite,
                                   IDoneListener* listener) override;
  P<IBackgroundOp> backgroundCreateFolder(CURI const& uri, int options, IDoneListener* listener) override;
  P<IBackgroundOp> backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                              IDoneListener* listener) override;
  P<IBackgroundOp> backgroundDeleteFile(CURI const& uri, IDoneListener* listener) override;
  P<IFileInfoBase> getFileInfo(CURI const& uri, bool followLinks) override;
  P<IFileMetaModifier> createMetaModifier(CURI const& uri, bool followLinks) override;
  long long getFileSectorSize(CURI const& uri) override;
  P<IFolderContentsIterator> getFolderContents(CURI const& uri) override;
  P<IIOStream> createStream(CURI const& uri, IIOStream::Access access, TFlags<IIOStream::Flags> flags) override;
  P<IIOStream> createSubDataStream(CURI const& uri, String const& name, IIOStream::Access access,
                                   TFlags<IIOStream::Flags> flags) override;
  void createFolder(CURI const& uri, int options) override;
  bool ensureFolderExists(CURI const& uri, int options) override;
  void ensureFileExists(CURI const& uri) override;
  void createFileHardLink(CURI const& link, CURI const& target) override;
  void createFolderHardLink(CURI const& link, CURI const& target) override;
  void createFileSymLink(CURI const& link, CURI const& target) override;
  void createFolderSymLink(CURI const& link, CURI const& target) override;
  bool fileExists(CURI const& uri) override;
  bool folderExists(CURI const& uri) override;
  bool pathExists(CURI const& uri) override;
  bool quickCheckFolderAccessible(CURI const& uri) override;
  bool isFolderEmpty(CURI const& uri) override;
  void deleteFile(CURI const& uri, bool ignoreMissing) override;
  void deleteSymLink(CURI const& uri) override;
  void deleteEmptyFolder(CURI const& uri, bool ignoreMissing) override;
  void unlinkFolder(CURI const& uri) override;
  CURI getVolumeRootPath(CURI const& uri) override;
  CURI createUniqueFilename(CURI const& folder, String const& name) override;
  CURI createUniqueFolderName(CURI const& folder, String const& name) override;
  void moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) override;
  void copyFile(CURI const& from, CURI const& to, bool overwrite) override;
  long long getFreeSpaceInFolder(CURI const& uri) override;
  String getAccountOrUserNameUsedForAccess(CURI const& uri) override;
  P<CNativeMetaData> getNativeMetaData(CURI const& uri, bool followLinks, String const& what) override;

protected:
  CDelegatingFileSystemBase();

  /// The file system that serves uri (never null). Throws CFileSystemError
  /// (or what the subclass defines) when there is none.
  virtual P<IFileSystem> getFileSystem(CURI const& uri) = 0;
  /// The one file system that serves both URIs. Default: the file system of
  /// uri1; when allowRelativeSecond is true and uri2 has no scheme, that one
  /// without looking at uri2; otherwise the file system of uri2 must be the
  /// same object, or CFileSystemError problem 6 (kUnservedURI) is thrown
  /// whose cause is a CError "Objects are on different file systems." with
  /// the properties "uri1" and "uri2" (the URIs' texts).
  virtual P<IFileSystem> getFileSystemForTwo(CURI const& uri1, CURI const& uri2, bool allowRelativeSecond);
};

}  // namespace qo

#endif  // QO_FS_CDELEGATINGFILESYSTEMBASE_H

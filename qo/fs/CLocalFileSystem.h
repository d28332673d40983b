// qo/fs/CLocalFileSystem.h - the file system of this machine, for "file" URIs.
//
// Every IFileSystem operation is done by the OS: a URI becomes the native
// path (Windows: "C:\x" or "\\srv\share\x", with the long-path prefix from
// 247 characters on; POSIX: "/x"), and the path goes to the platform's
// FileSystem service or, for data, to a CLocalFileStream.
//
// Replacing never destroys data: an overwriting store or copy writes a
// temporary file "~qo-<16 hex digits>.tmp" in the target's folder (created
// readable by its owner only on POSIX), flushes it to the medium and then
// renames it over the target, flushing the folder too (Windows: MoveFileExW
// with write-through). The target holds the old or the complete new content
// at every moment, also across a crash or a kill; a failed store or copy
// removes its temporary file (a killed one leaves it, see isTemporaryName).
// Sparse files stay sparse: a copy writes only the data ranges of its
// source (POSIX: SEEK_DATA/SEEK_HOLE), a store skips runs of zeros of 4 KiB
// and more, leaving holes where the file system makes them.
//
// Arguments the interface leaves open mean here:
//   backgroundStore(..., overwrite, ...)   replace an existing target
//   getFileInfo(uri, followLinks)          report a link's target instead
//   createMetaModifier(uri, followLinks)   change a link's target instead
//   createFolder / ensureFolderExists / backgroundCreateFolder (uri, options)
//                                          kCreateParents: missing parents too
//   deleteFile(uri, ignoreMissing)         a missing file is no error
//   deleteEmptyFolder(uri, ignoreMissing)  a missing folder is no error
//   moveFileOrFolder / copyFile (from, to, overwrite)   replace an existing
//                                          file at to (a folder is never
//                                          replaced)
//   getNativeMetaData(uri, followLinks, what)   see the function
//
// Failures:
// - A URI that is not a "file" URI of this machine's path style:
//   CFileSystemError kUnservedURI (6) with "uri"; its cause is a CError
//   ("The URI scheme is not supported.") or the URI's conversion error.
// - An OS failure with a known reason: CFileSystemError with the problem
//   kNotFound (1), kAlreadyExists (2), kAccessDenied (3), kWrongKind (4: a
//   file where a folder is needed or the reverse, or not a link where one is
//   needed), kLockConflict (5: in use), kNotEmpty (7), kNoSpace (8),
//   kUnsupported (9: the OS or the volume cannot do it, or a name it does
//   not take); properties "uri" (the object; for two-object operations the
//   first), "uri2" (the second object), "action" (the operation's name);
//   cause: the CSystemError of the OS call.
// - Any other OS failure: CIOError with "uri", "uri2", "action", the
//   CSystemError as cause, of kind kReadFailed (2) for queries, kWriteFailed
//   (3) for creating and changing, kMoveFailed (8), kDeleteFailed (9).
// - Streams (createStream, createSubDataStream) throw CLocalFileStream's
//   CIOErrors, which carry the problem number under "fileSysProblem" too, so
//   CFileSystemError::getProblem(e.getParams()) works on every failure here.
// - Bad arguments (an empty or separator-holding name): CInvalidArgError.
//
// The background operations run one after another on a "qo.bgOp" worker
// that the file system starts on first use and stops and joins when it is
// destroyed. A queued job holds a reference on the file system, so it lives
// until its jobs are done.
//
//   P<CLocalFileSystem> fs = newP<CLocalFileSystem>();
//   CURI dir(u"file:///tmp/backup/");
//   fs->ensureFolderExists(dir, CLocalFileSystem::kCreateParents);
//   P<IBackgroundOp> op = fs->backgroundStore(dir << u"a.bin", -1, source, true, nullptr);
//   op->waitFinished(-1);
//   op->throwErrorIfFailed();
//
// Thread-safe.
#ifndef QO_FS_CLOCALFILESYSTEM_H
#define QO_FS_CLOCALFILESYSTEM_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/core/TRequireNewAlloc.h"
#include "qo/fs/CURI.h"
#include "qo/fs/IFileSystem.h"
#include "qo/thread/CMutex.h"

#include <string>
#include <utility>
#include <vector>

namespace qo {

class CBackgroundOpThread;

/// The local file system. Heap only (newP); thread-safe.
class QO_API CLocalFileSystem : public TRequireNewAlloc<CBase>, public virtual IFileSystem {
public:
  /// Bits of the int options of the folder operations.
  enum FolderOption : int {
    kCreateParents = 1,  ///< Create missing parent folders as well.
  };

  CLocalFileSystem();
  /// Stops and joins the background worker (no job is queued any more: each
  /// holds a reference). Never throws.
  ~CLocalFileSystem() override;
  CLocalFileSystem(CLocalFileSystem const&) = delete;
  CLocalFileSystem& operator=(CLocalFileSystem const&) = delete;

  /// The native path of a file URI (with the long-path prefix where
  /// needed). Throws CFileSystemError kUnservedURI as described at the top.
  /// Thread-safe.
  static String toNativePath(CURI const& uri);
  /// The file URI of an absolute native path; isFolder ends it in "/".
  /// Throws CBadPathError for a relative path. Thread-safe.
  static CURI toURI(String const& nativePath, bool isFolder);

  /// True when name is one the file system gives its temporary files
  /// ("~qo-" and 16 hexadecimal digits, ".tmp"): what is left of a store or
  /// copy that was killed. Thread-safe.
  static bool isTemporaryName(String const& name);
  /// Stores length bytes (-1: to its end) of source as the file target, in
  /// the calling thread, through a temporary file renamed into place (see
  /// the top): a source that throws, or a failed write, leaves the target as
  /// it was. A target that cannot be written is refused before the source is
  /// read, with CIOError kind 1 (open) and "fileSysProblem": 2 for an
  /// existing file without overwrite, 3 for one this process may not write,
  /// 4 for a folder, 5 (Windows) for one open without sharing; 1 when the
  /// folder is missing. Throws CInvalidArgError ("CLocalFileSystem::storeFile")
  /// for a null source or a length below -1, the source's errors, CIOError
  /// kind 3 (write) for the temporary file, and the CFileSystemError or
  /// CIOError of the rename. Thread-safe.
  void storeFile(CURI const& target, long long length, IInStream* source, bool overwrite);

  // --- background: queued on the worker; errors come from the operation ----
  /// storeFile(target, length, source, overwrite) on the worker. Throws
  /// CInvalidArgError ("CLocalFileSystem::backgroundStore") for a null source
  /// or a length below -1.
  P<IBackgroundOp> backgroundStore(CURI const& target, long long length, IInStream* source, bool overwrite,
                                   IDoneListener* listener) override;
  /// createFolder(uri, options) on the worker.
  P<IBackgroundOp> backgroundCreateFolder(CURI const& uri, int options, IDoneListener* listener) override;
  /// moveFileOrFolder(from, to, overwrite) on the worker.
  P<IBackgroundOp> backgroundMoveFileOrFolder(CURI const& from, CURI const& to, bool overwrite,
                                              IDoneListener* listener) override;
  /// deleteFile(uri, false) on the worker.
  P<IBackgroundOp> backgroundDeleteFile(CURI const& uri, IDoneListener* listener) override;

  // --- queries ---------------------------------------------------------------
  /// Facts about uri; an info of KindNone (no error) when nothing is there.
  /// Without followLinks a link is reported as KindSymLink or KindJunction
  /// with its target text. Identity (volume and file id) and link count
  /// are those of the OS (Windows: volume serial and file index).
  [[nodiscard]] P<IFileInfoBase> getFileInfo(CURI const& uri, bool followLinks) override;
  /// A modifier whose commit() sets, in this order, the times (POSIX cannot
  /// set the creation time and ignores it), the attributes (POSIX: only
  /// read-only, as the write permission bits) and the POSIX mode (Windows:
  /// only the owner's write bit, as the read-only attribute). Without
  /// followLinks a link's own times are set; its mode is left alone on POSIX.
  /// The object must exist at commit (else kNotFound).
  [[nodiscard]] P<IFileMetaModifier> createMetaModifier(CURI const& uri, bool followLinks) override;
  /// The POSIX user and group ids of uri (without followLinks, of a link
  /// itself) into owner and group. kNotFound when nothing is there. Windows
  /// has no such ids: throws CNotImplementedError
  /// ("CLocalFileSystem::getOwner"). Thread-safe.
  void getOwner(CURI const& uri, bool followLinks, long long& owner, long long& group);
  /// Gives uri (without followLinks, a link itself) to the POSIX user owner
  /// and group group (-1: leave as it is). kAccessDenied without the
  /// privilege (only root may give a file away); on Windows throws
  /// CNotImplementedError ("CLocalFileSystem::setOwner"). Thread-safe.
  void setOwner(CURI const& uri, bool followLinks, long long owner, long long group);
  /// The extended attributes of uri (without followLinks, of a link itself)
  /// as names and value bytes, in the system's order; none on a file system
  /// without them. POSIX ACLs are among them ("system.posix_acl_access").
  /// kNotFound when nothing is there; on Windows throws CNotImplementedError
  /// ("CLocalFileSystem::getExtendedAttributes"). Thread-safe.
  std::vector<std::pair<String, std::string>> getExtendedAttributes(CURI const& uri, bool followLinks);
  /// Sets the extended attribute name of uri to value. kAccessDenied for a
  /// name this process may not set (say "trusted." ones without root),
  /// kUnsupported where the file system has none; on Windows throws
  /// CNotImplementedError ("CLocalFileSystem::setExtendedAttribute").
  /// Thread-safe.
  void setExtendedAttribute(CURI const& uri, bool followLinks, String const& name, std::string const& value);
  /// Windows: sets the security of uri from descriptor, the bytes of
  /// getNativeMetaData(uri, ..., "security"): its DACL, and its owner and
  /// group where this process may. kAccessDenied when it may not. POSIX:
  /// throws CNotImplementedError ("CLocalFileSystem::setSecurityDescriptor").
  /// Thread-safe.
  void setSecurityDescriptor(CURI const& uri, std::string const& descriptor);
  /// The sector size (Windows) or the file system's fundamental block size
  /// (POSIX) of the volume holding uri.
  [[nodiscard]] long long getFileSectorSize(CURI const& uri) override;
  /// The entries of the folder uri, in the OS's order, without "." and "..",
  /// each with its info (not following links). On Windows entries carry no
  /// identity, link count or link target (getFileInfo has them). kNotFound,
  /// or kWrongKind for a file.
  [[nodiscard]] P<IFolderContentsIterator> getFolderContents(CURI const& uri) override;
  /// A CLocalFileStream on the file uri.
  [[nodiscard]] P<IIOStream> createStream(CURI const& uri, IIOStream::Access access,
                                          TFlags<IIOStream::Flags> flags) override;
  /// Windows: the NTFS alternate data stream "name" of the file uri, as a
  /// CLocalFileStream on "path:name". POSIX: throws CNotImplementedError
  /// ("CLocalFileSystem::createSubDataStream"). CInvalidArgError for an
  /// empty name or one holding ':', '\' or '/'.
  [[nodiscard]] P<IIOStream> createSubDataStream(CURI const& uri, String const& name, IIOStream::Access access,
                                                 TFlags<IIOStream::Flags> flags) override;
  /// True when a file (or a link to one) is at uri.
  [[nodiscard]] bool fileExists(CURI const& uri) override;
  /// True when a folder (or a link to one) is at uri.
  [[nodiscard]] bool folderExists(CURI const& uri) override;
  /// True when anything is at uri, a dangling link included.
  [[nodiscard]] bool pathExists(CURI const& uri) override;
  /// True when uri is a folder whose listing can be opened; never throws.
  [[nodiscard]] bool quickCheckFolderAccessible(CURI const& uri) override;
  /// True when the folder uri has no entries. kNotFound, kWrongKind.
  [[nodiscard]] bool isFolderEmpty(CURI const& uri) override;
  /// The root folder of the volume (mount point, drive) holding uri, as a
  /// folder URI. uri need not exist.
  [[nodiscard]] CURI getVolumeRootPath(CURI const& uri) override;
  /// folder << name when nothing is there, else the first free of
  /// "title (2).ext", "title (3).ext" ... Nothing is created, so two callers
  /// may get the same URI. kAlreadyExists after 9999 tries.
  [[nodiscard]] CURI createUniqueFilename(CURI const& folder, String const& name) override;
  /// As createUniqueFilename, "name (2)" ... (a folder name has no extension).
  [[nodiscard]] CURI createUniqueFolderName(CURI const& folder, String const& name) override;
  /// Bytes this process may still write on the volume of the folder uri.
  [[nodiscard]] long long getFreeSpaceInFolder(CURI const& uri) override;
  /// The name of the account this process runs as.
  [[nodiscard]] String getAccountOrUserNameUsedForAccess(CURI const& uri) override;
  /// The OS's own record of uri: what "" gives the stat record (POSIX,
  /// format "posix.stat": a struct stat) or the file information (Windows,
  /// "win32.BY_HANDLE_FILE_INFORMATION"); Windows also has "security"
  /// ("win32.SECURITY_DESCRIPTOR", self-relative: owner, group, DACL).
  /// Another what: kUnsupported.
  [[nodiscard]] P<CNativeMetaData> getNativeMetaData(CURI const& uri, bool followLinks, String const& what) override;

  // --- changes ---------------------------------------------------------------
  /// Creates the folder uri; kAlreadyExists when something is there already,
  /// kNotFound when its parent is missing and options lack kCreateParents.
  void createFolder(CURI const& uri, int options) override;
  /// Creates the folder uri and its missing parents (whatever the options);
  /// true when it created it, false when a folder was there. kWrongKind when
  /// something else is there.
  bool ensureFolderExists(CURI const& uri, int options) override;
  /// Creates an empty file uri unless a file is there (an existing file is
  /// not opened, so a read-only one is fine). kWrongKind for a folder.
  void ensureFileExists(CURI const& uri) override;
  /// Makes link a new name of the file target.
  void createFileHardLink(CURI const& link, CURI const& target) override;
  /// Makes link lead to the folder target: a junction on Windows, an
  /// absolute symbolic link on POSIX (which has no folder hard links).
  void createFolderHardLink(CURI const& link, CURI const& target) override;
  /// Makes link a symbolic link to the file target. A target without scheme
  /// and with a relative path is stored relative (as its path text, in
  /// native separators); any other target is stored as its absolute path.
  /// Windows may refuse without the privilege (kAccessDenied).
  void createFileSymLink(CURI const& link, CURI const& target) override;
  /// As createFileSymLink, for a folder.
  void createFolderSymLink(CURI const& link, CURI const& target) override;
  /// Deletes the file (or file link) uri, read-only ones too. kWrongKind for
  /// a folder; kNotFound unless ignoreMissing.
  void deleteFile(CURI const& uri, bool ignoreMissing) override;
  /// Deletes the link uri itself. kWrongKind when uri is not a link.
  void deleteSymLink(CURI const& uri) override;
  /// Removes the empty folder uri. kNotEmpty; kWrongKind for a file or a
  /// link; kNotFound unless ignoreMissing.
  void deleteEmptyFolder(CURI const& uri, bool ignoreMissing) override;
  /// Removes the folder link (junction, symbolic link to a folder) uri, not
  /// what it leads to. kWrongKind for anything else.
  void unlinkFolder(CURI const& uri) override;
  /// Renames from to to (a file or a folder). An existing file at to is
  /// replaced when overwrite is set, else kAlreadyExists; an existing folder
  /// at to is never replaced (kAlreadyExists or kNotEmpty). A file moves
  /// across volumes by copy and delete; a folder cannot (kUnsupported).
  void moveFileOrFolder(CURI const& from, CURI const& to, bool overwrite) override;
  /// Copies the file from to to with its times and permissions; an existing
  /// file at to is replaced when overwrite is set, else kAlreadyExists.
  /// kWrongKind when either is a folder. A failed copy leaves no new target
  /// and an old one as it was (see the top).
  void copyFile(CURI const& from, CURI const& to, bool overwrite) override;

private:
  class CFolderIterator;
  class CMetaModifier;
  class CStoreJob;

  P<CBackgroundOpThread> worker();

  CMutex m_workerMutex;
  P<CBackgroundOpThread> m_worker;
};

}  // namespace qo

#endif  // QO_FS_CLOCALFILESYSTEM_H

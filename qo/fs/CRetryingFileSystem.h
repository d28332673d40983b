// qo/fs/CRetryingFileSystem.h - a file system that makes a failed call again
// when the failure may pass: a file in use, a lock, a busy device, a network
// that went away for a moment.
//
// Every synchronous operation goes to the inner file system; when it fails
// with a transient error the call is made again after a wait, up to the
// number of attempts the caller set, the waits doubling from firstDelayMs up
// to maxDelayMs. Each retry is logged as a "WARNING" entry (the error, the
// operation, the URI, the attempt). When the attempts are used up, or the
// error is not transient, the last error is thrown as the inner file system
// threw it (same class and properties).
//
// With setAutoMount(true), a failure because a network share is not
// connected connects it through CNetworkAutoMounter and the call is made
// once more, whatever the operation (nothing was done on a share that was
// not there).
//
// Transient errors, found on the error or any of its causes (see classify):
// - refused: a sharing violation, a lock conflict (problem kLockConflict or
//   "lockConflict"), a busy file or device (EBUSY, ETXTBSY). The system
//   refused before it changed anything, so any call may be made again.
// - uncertain: the way to the storage failed (network gone or reset, timed
//   out). The failed call may have taken effect.
//
// Which operations are made again after which failure:
// - Queries and idempotent changes, after both kinds: getFileInfo,
//   getFileSectorSize, getFolderContents (opening the listing; the listing's
//   getNext is the iterator's own), the exists queries,
//   quickCheckFolderAccessible, isFolderEmpty, getVolumeRootPath,
//   createUniqueFilename, createUniqueFolderName, getFreeSpaceInFolder,
//   getAccountOrUserNameUsedForAccess, getNativeMetaData,
//   ensureFolderExists, ensureFileExists, createStream and
//   createSubDataStream (an open that did not happen left nothing behind;
//   a second truncation is the same as one), copyFile with overwrite (the
//   copy is replaced by the same copy), deleteFile and deleteEmptyFolder
//   with ignoreMissing (a second delete of a deleted object is no error).
// - Steps that are not idempotent, after a refusal only: createFolder, the
//   four link creations, deleteFile and deleteEmptyFolder without
//   ignoreMissing, deleteSymLink, unlinkFolder, moveFileOrFolder, copyFile
//   without overwrite, createStream and createSubDataStream with
//   FlagFailIfExists. After an uncertain failure the first call may have
//   done its work, and a second one would then fail (already exists, not
//   found) or, worse, succeed on something else; the error is thrown.
// - Not at all: the background operations (they return at once; their
//   errors come later through the operation) and createMetaModifier (its
//   commit is the modifier's). The streams handed out are the inner ones;
//   CRetryingIOStreamWrapper retries their reads and writes.
//
//   P<CRetryingFileSystem> fs = newP<CRetryingFileSystem>(local, 5, 50, 2000);
//   fs->copyFile(from, to, true);   // waits 50, 100, 200, 400 ms at most
//
// Thread-safe (the sleeper must be set before the file system is shared).
#ifndef QO_FS_CRETRYINGFILESYSTEM_H
#define QO_FS_CRETRYINGFILESYSTEM_H

#include <functional>

#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/fs/CDelegatingFileSystemBase.h"

namespace qo {

/// Retries transient failures of an inner file system. Thread-safe.
class QO_API CRetryingFileSystem : public CDelegatingFileSystemBase {
public:
  /// What kind of failure an error is.
  enum Transience {
    kLasting,    ///< Making the call again fails the same way.
    kRefused,    ///< Refused before anything changed: any call may be made again.
    kUncertain,  ///< The call may have taken effect: only idempotent ones are made again.
  };

  /// Wraps inner (kept). attempts: tries in all (at least 1);
  /// firstDelayMs: the wait before the first retry, doubled before each
  /// further one up to maxDelayMs (both >= 0). Throws CInvalidArgError
  /// ("CRetryingFileSystem::CRetryingFileSystem") for a null inner, attempts
  /// below 1, a negative delay or maxDelayMs below firstDelayMs.
  CRetryingFileSystem(P<IFileSystem> const& inner, int attempts, int firstDelayMs, int maxDelayMs);
  ~CRetryingFileSystem() override;
  CRetryingFileSystem(CRetryingFileSystem const&) = delete;
  CRetryingFileSystem& operator=(CRetryingFileSystem const&) = delete;

  /// Replaces the wait between tries (default: the calling thread sleeps
  /// for the milliseconds given); tests count the waits instead. Call it
  /// before the file system is shared. Not thread-safe.
  void setSleeper(std::function<void(int delayMs)> sleeper);
  /// With on, a call that fails for another reason is handed to
  /// CNetworkAutoMounter::get()->connectFor once; when that connects the
  /// call's network share, the call is made again at once (not counted as
  /// an attempt). Default off. Call it before the file system is shared.
  /// Not thread-safe.
  void setAutoMount(bool on) { m_autoMount = on; }
  /// The inner file system. Thread-safe.
  P<IFileSystem> const& getInner() const { return m_inner; }
  /// The wait before retry number retry (1 = the first retry):
  /// min(firstDelayMs * 2^(retry-1), maxDelayMs). Thread-safe.
  int getDelayMs(int retry) const;

  /// The transience of error: kRefused when it or one of its causes is a
  /// lock conflict (problem kLockConflict, "lockConflict" true) or a system
  /// error of this OS whose code is a refusal (sharing violation, lock,
  /// busy); else kUncertain when one is a system error of a failed network
  /// or time-out; else kLasting. Thread-safe.
  static Transience classify(CError const& error);

  P<IFileInfoBase> getFileInfo(CURI const& uri, bool followLinks) override;
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
  /// The inner file system, for every URI.
  P<IFileSystem> getFileSystem(CURI const& uri) override;
  /// The inner file system, for every pair.
  P<IFileSystem> getFileSystemForTwo(CURI const& uri1, CURI const& uri2, bool allowRelativeSecond) override;

private:
  template <class F>
  auto run(char const* operation, CURI const& uri, bool idempotent, F const& call) -> decltype(call());

  P<IFileSystem> m_inner;
  int m_attempts;
  int m_firstDelayMs;
  int m_maxDelayMs;
  std::function<void(int)> m_sleeper;
  bool m_autoMount = false;
};

}  // namespace qo

#endif  // QO_FS_CRETRYINGFILESYSTEM_H

// qo/fs/CLockFile.h - a lock held on a file for an object's life.
//
// Guards a resource across processes: the file at the path (created when
// missing) is opened and locked as a whole, exclusively or shared, until
// unlock() or destruction. Another CLockFile on the same path, in another
// process or in this one, is refused while the lock is held (exclusive
// against anything, shared against exclusive). The lock is the OS's, so a
// process that dies loses it at once; the file itself stays unless
// deleteOnRelease was asked for.
// deleteOnRelease deletes the file only when the releasing holder is the
// last one (it can take the lock exclusively). A newcomer that opened the
// file just before it went would lock a deleted file while a third party
// creates a fresh one; so taking the lock checks that the path still names
// the locked file and starts over when it does not.
//
//   CLockFile lock(logPath + u".lock", IStreamBase::LockExclusive, true);
//   ...                       // the log is ours
//   lock.unlock();            // or let the destructor do it
//
// Not thread-safe.
#ifndef QO_FS_CLOCKFILE_H
#define QO_FS_CLOCKFILE_H

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"
#include "qo/stream/IStreamBase.h"
#include "qo/stream/IStreamLock.h"

namespace qo {

class CLocalFileStream;

/// An exclusive or shared lock on a whole file. Not thread-safe.
class QO_API CLockFile : public CBase {
public:
  /// Creates the file at path if missing, opens it and locks it whole.
  /// Throws CLockFileError(path, type, cause): the cause a CFileSystemError
  /// with problem 5 (lock conflict) when the lock is held elsewhere,
  /// otherwise the CIOError of opening.
  explicit CLockFile(String const& path, IStreamBase::LockType type = IStreamBase::LockExclusive,
                     bool deleteOnRelease = false);
  /// unlock(); never throws.
  ~CLockFile() override;
  CLockFile(CLockFile const&) = delete;
  CLockFile& operator=(CLockFile const&) = delete;

  /// Drops the lock and closes the file; with deleteOnRelease also deletes
  /// the file, unless another holder still holds a lock on it (a failure
  /// to delete is ignored as well). Idempotent; never throws.
  void unlock();
  /// True from construction until unlock().
  bool isHeld() const;
  /// The path as given.
  String const& getPath() const;
  IStreamBase::LockType getLockType() const noexcept { return m_type; }

private:
  String m_path;
  IStreamBase::LockType m_type;
  bool m_deleteOnRelease;
  P<CLocalFileStream> m_stream;
  P<IStreamLock> m_lock;
};

}  // namespace qo

#endif  // QO_FS_CLOCKFILE_H

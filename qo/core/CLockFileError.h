// qo/core/CLockFileError.h - a lock file that could not be taken.
//
// Lock files guard a resource across processes (the session log keeps one
// at its path plus ".lock"). The error names the lock file by path or by
// URI, the lock type wanted and the lower-level cause. Properties:
//   "lockConflict"  "true" when the cause was a lock conflict (a
//                   CFileSystemError with problem 5, or a cause that itself
//                   carries "lockConflict" = true), else "false";
//   "lockType"      "shared" or "exclusive";
//   "path"          the lock file's path (path form only);
//   "uri"           the lock file's URI (URI form only).
//
//   throw CLockFileError(logPath + u".lock", IStreamBase::LockExclusive, &openError);
//   // "Cannot acquire the lock file. [lockConflict='true', lockType='exclusive', path='...']"
// Empty domain, code -1.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CLOCKFILEERROR_H
#define QO_CORE_CLOCKFILEERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/fs/CURI.h"
#include "qo/stream/IStreamBase.h"

namespace qo {

/// A lock file that could not be taken. Not thread-safe.
class QO_API CLockFileError : public CError {
public:
  /// The lock file at path; cause (may be null) is cloned.
  CLockFileError(String const& path, IStreamBase::LockType lockType, CError const* cause = nullptr);
  /// The lock file at uri; cause (may be null) is cloned.
  CLockFileError(CURI const& uri, IStreamBase::LockType lockType, CError const* cause = nullptr);
  CLockFileError(CLockFileError const& other);
  CLockFileError& operator=(CLockFileError const& other);
  ~CLockFileError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;

  /// The value of "lockConflict".
  bool isLockConflict() const;
  /// The property key of the path: "path".
  static String paramPath();
  /// True when error states a lock conflict: a CFileSystemError problem 5
  /// in its properties, or "lockConflict" = true.
  static bool isLockConflictError(CError const* error);
};

}  // namespace qo

#endif  // QO_CORE_CLOCKFILEERROR_H

// qo/core/CFileSystemError.h - a file-system operation that failed for a
// known reason.
//
// The reason is a problem number (the Problem constants below), kept in the
// property "fileSysProblem" so that it survives wherever the properties go
// (logs, clones, another process). Callers branch on it:
//   catch (CFileSystemError const& e) {
//     if (CFileSystemError::getProblem(e.getParams()) == CFileSystemError::kNotFound) ...
//   }
// The cause, when given, is the lower-level error (often a CIOError).
// Empty domain, code -1.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CFILESYSTEMERROR_H
#define QO_CORE_CFILESYSTEMERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A file-system failure with a problem number. Not thread-safe.
class QO_API CFileSystemError : public CError {
public:
  /// Problem numbers; the values are stable (they travel in properties).
  enum Problem : int {
    kUnknown = 0,        ///< No more specific reason known.
    kNotFound = 1,       ///< The file or folder does not exist.
    kAlreadyExists = 2,  ///< The target name is taken.
    kAccessDenied = 3,   ///< Permissions refuse the operation.
    kWrongKind = 4,      ///< A file where a folder was expected, or the reverse.
    kLockConflict = 5,   ///< Another user holds a conflicting lock.
    kUnservedURI = 6,    ///< No registered file system serves the URI, or the
                         ///< objects lie on different file systems.
    kNotEmpty = 7,       ///< The folder still has entries.
    kNoSpace = 8,        ///< The medium is full.
    kUnsupported = 9,    ///< The file system cannot do this.
  };

  /// Message getProblemMessage(problem), property "fileSysProblem" = the
  /// problem number, a clone of cause; empty domain, code -1.
  explicit CFileSystemError(int problem, CError const* cause = nullptr);
  /// As above with an own message (empty: the problem's message) and more
  /// properties; "fileSysProblem" is set over any value in props.
  CFileSystemError(int problem, String const& message, CProps const& props = CProps(),
                   CError const* cause = nullptr);
  CFileSystemError(CFileSystemError const& other);
  CFileSystemError& operator=(CFileSystemError const& other);
  ~CFileSystemError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;

  /// The problem number of this error (getProblem(getParams())).
  int getProblem() const { return getProblem(getParams()); }
  /// The problem number stored in any bag; kUnknown when "fileSysProblem"
  /// is absent or not a number in the range of int.
  static int getProblem(CProps const& props);
  /// The property key: "fileSysProblem".
  static String paramFileSysProblem();
  /// The default message of a problem, "File system error: <reason>."; for
  /// kUnknown and numbers outside the table just "File system error.".
  static String getProblemMessage(int problem);
};

}  // namespace qo

#endif  // QO_CORE_CFILESYSTEMERROR_H

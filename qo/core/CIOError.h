// qo/core/CIOError.h - failures of streams and files.
//
// Every stream and file failure is a CIOError in the domain "IO"; its code
// is the kind of failure (the constants below, 0-15). Constructed with an
// empty message it takes the kind's default message:
//   throw CIOError(CIOError::kUnexpectedEOF);
//   // "Unexpected end of data. [IO 4]"
//   throw CIOError(CIOError::kWriteFailed, String(),
//                  CProps().add(u"action", u"write").add(CIOError::paramURI(), uri));
// Callers test the kind with isError(CIOError::getDomain(), kind) or
// getErrorCode().
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CIOERROR_H
#define QO_CORE_CIOERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A stream or file failure of a given kind. Not thread-safe.
class QO_API CIOError : public CError {
public:
  // The kinds of I/O failure; stored as the error code.
  static constexpr long long kUnknown = 0;             ///< "Unknown I/O error."
  static constexpr long long kOpenFailed = 1;          ///< "Error opening file or stream."
  static constexpr long long kReadFailed = 2;          ///< "Error reading data."
  static constexpr long long kWriteFailed = 3;         ///< "Error writing data."
  static constexpr long long kUnexpectedEOF = 4;       ///< "Unexpected end of data."
  static constexpr long long kCorruptData = 5;         ///< "The data is invalid or corrupted."
  static constexpr long long kBadVersion = 6;          ///< "Unsupported or invalid data version."
  static constexpr long long kSeekFailed = 7;          ///< "Error seeking to new position."
  static constexpr long long kMoveFailed = 8;          ///< "Error moving a file."
  static constexpr long long kDeleteFailed = 9;        ///< "Error deleting a file."
  static constexpr long long kStreamClosed = 10;       ///< "Error: stream has been closed."
  static constexpr long long kPositionNotAligned = 11; ///< Stream position not aligned.
  static constexpr long long kBufferNotAligned = 12;   ///< Buffer passed to a stream not aligned.
  static constexpr long long kResizeFailed = 13;       ///< "Error changing the size of a file."
  static constexpr long long kUnsupported = 14;        ///< "Operation unsupported"
  static constexpr long long kLockFailed = 15;         ///< "Locking error"

  /// Domain "IO", the given kind as code, the message (or, when it is
  /// empty, getDefaultMessage(code)), the properties and a clone of cause.
  explicit CIOError(long long code, String const& message = String(), CProps const& props = CProps(),
                    CError const* cause = nullptr);
  CIOError(CIOError const& other);
  CIOError& operator=(CIOError const& other);
  ~CIOError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;

  /// The default message of a kind; "Unknown I/O error." for codes outside
  /// 0-15.
  static String getDefaultMessage(long long code);
  /// The code domain of I/O errors: "IO".
  static String getDomain();
  /// The property key of the URI of the stream or file concerned: "uri".
  static String paramURI();
};

}  // namespace qo

#endif  // QO_CORE_CIOERROR_H

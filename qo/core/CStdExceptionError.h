// qo/core/CStdExceptionError.h - a standard C++ exception carried as a CError.
//
// Code that must hand on any failure as a CError (a background operation,
// a thread body) wraps standard exceptions:
//   catch (std::exception const& e) { m_error = CStdExceptionError::exceptionToError(&e); }
// The domain is "STDEXC"; the code is the kind of the standard exception
// (the Kind constants below: the most derived standard class the exception
// belongs to); the message is its what() text, read as UTF-8 with bytes that
// are not valid UTF-8 taken as Latin-1.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CSTDEXCEPTIONERROR_H
#define QO_CORE_CSTDEXCEPTIONERROR_H

#include <exception>

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A standard exception as a CError. Not thread-safe.
class QO_API CStdExceptionError : public CError {
public:
  /// Kinds of standard exception, the error code; the values are stable.
  /// A class not listed counts as its nearest listed base
  /// (std::bad_array_new_length is kBadAlloc, std::future_error is
  /// kLogicError, std::ios_base::failure is kSystemError or kOther,
  /// depending on the standard library).
  enum Kind : int {
    kOther = 0,  ///< Any other std::exception (a CError included).
    kBadAlloc = 1,
    kBadCast = 2,
    kBadTypeid = 3,
    kBadException = 4,
    kLogicError = 5,
    kDomainError = 6,
    kInvalidArgument = 7,
    kLengthError = 8,
    kOutOfRange = 9,
    kRuntimeError = 10,
    kRangeError = 11,
    kOverflowError = 12,
    kUnderflowError = 13,
    kSystemError = 14,
    kBadFunctionCall = 15,
    kBadWeakPtr = 16,
    kBadOptionalAccess = 17,
    kBadVariantAccess = 18,
  };

  /// Domain "STDEXC", code errorCodeFromException(e), message e.what()
  /// (UTF-8 with the Latin-1 fallback; "" for a null what()).
  explicit CStdExceptionError(std::exception const& e);
  CStdExceptionError(CStdExceptionError const& other);
  CStdExceptionError& operator=(CStdExceptionError const& other);
  ~CStdExceptionError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;

  /// The Kind of e.
  static long long errorCodeFromException(std::exception const& e) noexcept;
  /// The exception as a CError: a clone (same dynamic class) when e is a
  /// CError already - the caller's exception object is not reference
  /// counted, so it cannot be shared - otherwise a new CStdExceptionError.
  /// Null for a null e.
  static P<CError> exceptionToError(std::exception const* e);
  /// The code domain: "STDEXC".
  static String getDomain();
};

}  // namespace qo

#endif  // QO_CORE_CSTDEXCEPTIONERROR_H

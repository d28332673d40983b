// qo/core/CURIIncompatibleError.h - a URI that does not suit an operation
// (a file path asked of an "http" URI, a POSIX path of a UNC one).
//
//   throw CURIIncompatibleError(uri, u"Cannot convert URI to unix file path. Path is network path.");
// The message is the one given; the properties describe the URI: "scheme",
// "path" and "hasUserAuthInfo" ("true"/"false") always, "userName", "host",
// "port", "query" and "fragment" when the URI has them. The password itself
// is never copied into the error. Empty domain, code -1.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CURIINCOMPATIBLEERROR_H
#define QO_CORE_CURIINCOMPATIBLEERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

class CURI;

/// A URI unsuited to the requested operation. Not thread-safe.
class QO_API CURIIncompatibleError : public CError {
public:
  /// The given message; properties describing uri as above.
  CURIIncompatibleError(CURI const& uri, String const& message);
  CURIIncompatibleError(CURIIncompatibleError const& other);
  CURIIncompatibleError& operator=(CURIIncompatibleError const& other);
  ~CURIIncompatibleError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CURIINCOMPATIBLEERROR_H

// qo/core/CParseError.h - text or data that does not follow its format.
//
// Raised by readers of textual forms (property text, UTF-8, URIs); the
// properties say where it went wrong, usually "offset":
//   throw CParseError(u"Malformed property text.", CProps().addLong(u"offset", pos));
// Empty domain, code -1; the message is the one given.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CPARSEERROR_H
#define QO_CORE_CPARSEERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// Malformed text or data. Not thread-safe.
class QO_API CParseError : public CError {
public:
  /// The given message and properties; empty domain, code -1.
  explicit CParseError(String const& message, CProps const& props = CProps());
  CParseError(CParseError const& other);
  CParseError& operator=(CParseError const& other);
  ~CParseError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CPARSEERROR_H

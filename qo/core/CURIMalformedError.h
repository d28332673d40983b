// qo/core/CURIMalformedError.h - a URI text that does not parse.
//
//   throw CURIMalformedError(text, CProps().add(u"reason", u"Port is not a decimal number."));
// Message "Malformed URI"; the offending text is the property "uri", next to
// the properties given (the parser gives "reason"). Empty domain, code -1.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CURIMALFORMEDERROR_H
#define QO_CORE_CURIMALFORMEDERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A malformed URI. Not thread-safe.
class QO_API CURIMalformedError : public CError {
public:
  /// Message "Malformed URI"; properties: props and "uri" = uriText.
  explicit CURIMalformedError(String const& uriText, CProps const& props = CProps());
  CURIMalformedError(CURIMalformedError const& other);
  CURIMalformedError& operator=(CURIMalformedError const& other);
  ~CURIMalformedError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
  /// The property key of the reason text: "reason".
  static String paramReason();
};

}  // namespace qo

#endif  // QO_CORE_CURIMALFORMEDERROR_H

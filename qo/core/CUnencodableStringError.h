// qo/core/CUnencodableStringError.h - text that the requested encoding cannot hold.
//
// Raised by String conversions (toUTF8 with a lone surrogate, toLatin1 with
// a character above U+00FF, toCP with a character the code page lacks).
// Message "The text cannot be represented in the requested encoding.";
// empty domain, code -1; String conversions add "offset" (the index of the first
// character that cannot be encoded) and, for code pages, "codePage".
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CUNENCODABLESTRINGERROR_H
#define QO_CORE_CUNENCODABLESTRINGERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// Text that the target encoding cannot hold. Not thread-safe.
class QO_API CUnencodableStringError : public CError {
public:
  /// Message "The text cannot be represented in the requested encoding.";
  /// empty domain, code -1.
  CUnencodableStringError();
  CUnencodableStringError(CUnencodableStringError const& other);
  CUnencodableStringError& operator=(CUnencodableStringError const& other);
  ~CUnencodableStringError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CUNENCODABLESTRINGERROR_H

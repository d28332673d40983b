// qo/core/CBadStateError.h - an object asked to do something its state forbids.
//
//   throw CBadStateError(u"the stream is not open");  // "Bad state: the stream is not open"
// Empty domain, code -1, no properties.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CBADSTATEERROR_H
#define QO_CORE_CBADSTATEERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// An operation refused in the current state. Not thread-safe.
class QO_API CBadStateError : public CError {
public:
  /// Message "Bad state: " followed by description; empty domain, code -1.
  explicit CBadStateError(String const& description);
  CBadStateError(CBadStateError const& other);
  CBadStateError& operator=(CBadStateError const& other);
  ~CBadStateError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CBADSTATEERROR_H

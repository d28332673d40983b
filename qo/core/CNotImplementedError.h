// qo/core/CNotImplementedError.h - a function this build or class does not provide.
//
//   throw CNotImplementedError(u"CFoo::bar");
//   // "The function 'CFoo::bar' is not implemented."
// Empty domain, code -1, no properties.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CNOTIMPLEMENTEDERROR_H
#define QO_CORE_CNOTIMPLEMENTEDERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A function that is not provided. Not thread-safe.
class QO_API CNotImplementedError : public CError {
public:
  /// Message "The function '" + name + "' is not implemented."; empty
  /// domain, code -1.
  explicit CNotImplementedError(String const& name);
  CNotImplementedError(CNotImplementedError const& other);
  CNotImplementedError& operator=(CNotImplementedError const& other);
  ~CNotImplementedError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CNOTIMPLEMENTEDERROR_H

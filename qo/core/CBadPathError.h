// qo/core/CBadPathError.h - a path text that cannot be used.
//
//   throw CBadPathError(path);   // "Invalid path: <path>"
// Empty domain, code -1, no properties.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CBADPATHERROR_H
#define QO_CORE_CBADPATHERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// An unusable path. Not thread-safe.
class QO_API CBadPathError : public CError {
public:
  /// Message "Invalid path: " followed by path; empty domain, code -1.
  explicit CBadPathError(String const& path);
  CBadPathError(CBadPathError const& other);
  CBadPathError& operator=(CBadPathError const& other);
  ~CBadPathError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CBADPATHERROR_H

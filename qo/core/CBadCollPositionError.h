// qo/core/CBadCollPositionError.h - a collection position that is not valid.
//
// Thrown when an iterator or index of a library collection points nowhere
// (past the end, or into an emptied collection):
//   if (!isValid(pos)) throw CBadCollPositionError();
// Message "Bad collection position."; empty domain, code -1.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CBADCOLLPOSITIONERROR_H
#define QO_CORE_CBADCOLLPOSITIONERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// An invalid collection position. Not thread-safe.
class QO_API CBadCollPositionError : public CError {
public:
  /// Message "Bad collection position.", empty domain, code -1.
  CBadCollPositionError();
  CBadCollPositionError(CBadCollPositionError const& other);
  CBadCollPositionError& operator=(CBadCollPositionError const& other);
  ~CBadCollPositionError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CBADCOLLPOSITIONERROR_H

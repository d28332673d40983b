// qo/core/CSocketError.h - a failure of a network socket.
//
//   throw CSocketError(u"Connection refused.", CProps().add(u"host", host));
// Empty domain, code -1; the message is the one given.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CSOCKETERROR_H
#define QO_CORE_CSOCKETERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A socket failure. Not thread-safe.
class QO_API CSocketError : public CError {
public:
  /// The given message and properties; empty domain, code -1.
  explicit CSocketError(String const& message, CProps const& props = CProps());
  CSocketError(CSocketError const& other);
  CSocketError& operator=(CSocketError const& other);
  ~CSocketError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;
};

}  // namespace qo

#endif  // QO_CORE_CSOCKETERROR_H

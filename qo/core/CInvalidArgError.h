// qo/core/CInvalidArgError.h - a bad argument passed to a library function.
//
//   throw CInvalidArgError(u"CMemoryStream::setLength", u"the length is negative",
//                          CProps().addLong(u"length", length));
//   // "Invalid argument passed to 'CMemoryStream::setLength': the length is
//   //  negative. [length='-1']"
// Empty domain, code -1.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CINVALIDARGERROR_H
#define QO_CORE_CINVALIDARGERROR_H

#include "qo/core/CError.h"
#include "qo/core/Export.h"

namespace qo {

/// A bad argument, naming the function that refused it. Not thread-safe.
class QO_API CInvalidArgError : public CError {
public:
  /// Message makeText(place, description), the given properties; empty
  /// domain, code -1.
  CInvalidArgError(String const& place, String const& description, CProps const& props = CProps());
  CInvalidArgError(CInvalidArgError const& other);
  CInvalidArgError& operator=(CInvalidArgError const& other);
  ~CInvalidArgError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;

  /// "Invalid argument passed to '" + place + "': " + description + ".";
  /// the closing "." is left out when description already ends with one.
  static String makeText(String const& place, String const& description);
};

}  // namespace qo

#endif  // QO_CORE_CINVALIDARGERROR_H

// qo/core/CCastError.h - a checked cast that the object refused or does not
// support.
//
// P<T>::cast<U>() throws it when the object vetoes the cast
// (checkCastAllowed) or does not implement U:
//   "Error casting object 0x<hex address> of type qo::CMemoryStream to type
//    qo::IFileSystem."
// Either part may be unknown: "Error casting an unspecified object to an
// unspecified type." Empty domain, code -1, no properties.
//
// Not thread-safe (as CError).
#ifndef QO_CORE_CCASTERROR_H
#define QO_CORE_CCASTERROR_H

#include <typeinfo>

#include "qo/core/CError.h"
#include "qo/core/Export.h"
#include "qo/core/IBase.h"

namespace qo {

/// A failed checked cast. Not thread-safe.
class QO_API CCastError : public CError {
public:
  /// Message makeText(object, targetType); empty domain, code -1. Either
  /// argument may be null. object is only read during the call.
  CCastError(IBase const* object, std::type_info const* targetType);
  CCastError(CCastError const& other);
  CCastError& operator=(CCastError const& other);
  ~CCastError() override;

  /// A heap copy.
  P<CError> clone() const override;
  /// Throws a copy.
  [[noreturn]] void throwClone() const override;

  /// "Error casting " + ("an unspecified object" | "object " + address +
  /// " of type " + dynamic type name) + (" to an unspecified type." |
  /// " to type " + target type name + "."). The address is written as
  /// toString(void const*) writes it; type names are the demangled run-time
  /// names (typeNameOf).
  static String makeText(IBase const* object, std::type_info const* targetType);
};

}  // namespace qo

#endif  // QO_CORE_CCASTERROR_H

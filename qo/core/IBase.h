// qo/core/IBase.h - the root interface of every qo object.
//
// Every interface and every concrete class derives from IBase *virtually*,
// so an object that implements several interfaces carries exactly one
// reference count. CBase (CBase.h) implements the count; P (P.h) holds it.
#ifndef QO_CORE_IBASE_H
#define QO_CORE_IBASE_H

#include <typeinfo>

#include "qo/core/Export.h"

namespace qo {

/// Root interface: reference counting and the cast veto. Thread-safe.
class QO_API IBase {
public:
  virtual ~IBase();
  /// Adds one reference.
  virtual void addRef() const = 0;
  /// Drops one reference; the last one ends the object.
  virtual void release() const = 0;
  /// False vetoes a checked cast of this object to the given type.
  virtual bool checkCastAllowed(std::type_info const& type) const = 0;

protected:
  IBase() = default;
  // Copying an interface copies no state.
  IBase(IBase const&) noexcept {}
  IBase& operator=(IBase const&) noexcept { return *this; }
};

}  // namespace qo

#endif  // QO_CORE_IBASE_H

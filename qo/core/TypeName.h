// qo/core/TypeName.h - readable run-time type names.
#ifndef QO_CORE_TYPENAME_H
#define QO_CORE_TYPENAME_H

#include <string>
#include <typeinfo>

#include "qo/core/Export.h"

namespace qo {

/// The run-time name of a type in UTF-8, demangled where the compiler
/// mangles it ("qo::CError", not "N2qo6CErrorE"). Never throws: falls back
/// to the raw name.
QO_API std::string typeNameOf(std::type_info const& type) noexcept;

}  // namespace qo

#endif  // QO_CORE_TYPENAME_H

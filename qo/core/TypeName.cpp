#include "qo/core/TypeName.h"

#include <cstdlib>

#if defined(__GNUG__)
#include <cxxabi.h>
#endif

namespace qo {

std::string typeNameOf(std::type_info const& type) noexcept {
  char const* raw = type.name();
  try {
#if defined(__GNUG__)
    int status = 0;
    char* demangled = abi::__cxa_demangle(raw, nullptr, nullptr, &status);
    if (status == 0 && demangled != nullptr) {
      std::string name(demangled);
      std::free(demangled);
      return name;
    }
    std::free(demangled);
#endif
    return raw;
  } catch (...) {
    return std::string();
  }
}

}  // namespace qo

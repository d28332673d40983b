#include "qo/platform/ErrorDomain.h"

namespace qo::platform {

char const* sysErrorDomain() { return "POSIX"; }

}  // namespace qo::platform

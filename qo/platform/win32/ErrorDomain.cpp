#include "qo/platform/ErrorDomain.h"

namespace qo::platform {

char const* sysErrorDomain() { return "WIN32"; }

}  // namespace qo::platform

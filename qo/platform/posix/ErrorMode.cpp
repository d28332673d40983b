#include "qo/platform/ErrorMode.h"

namespace qo::platform {

void suppressCriticalErrorDialogs() {}

}  // namespace qo::platform

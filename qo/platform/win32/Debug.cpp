#include "qo/platform/Debug.h"

#include <windows.h>

namespace qo::platform {

void debugOutput(char const* text) {
  if (text != nullptr) OutputDebugStringA(text);
}

}  // namespace qo::platform

#include "qo/platform/Debug.h"

#include <cstring>

#include <unistd.h>

namespace qo::platform {

void debugOutput(char const* text) {
  if (text == nullptr) return;
  size_t left = std::strlen(text);
  while (left > 0) {
    ssize_t n = ::write(STDERR_FILENO, text, left);
    if (n <= 0) return;
    text += n;
    left -= static_cast<size_t>(n);
  }
}

}  // namespace qo::platform

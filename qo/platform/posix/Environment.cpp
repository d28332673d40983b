#include "qo/platform/Environment.h"

#include <cstring>

#include "qo/platform/posix/Utf8Text.h"

extern "C" char** environ;

namespace qo::platform {

// The environment is the process's environ array: reading it makes no call
// that could fail; errors would name it.
char const* environmentApiName() { return "environ"; }

SysError readEnvironment(std::vector<EnvVar>& out) {
  out.clear();
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    char const* text = *entry;
    std::size_t length = std::strlen(text);
    char const* eq = length > 1 ? static_cast<char const*>(std::memchr(text + 1, '=', length - 1)) : nullptr;
    std::size_t nameLength = eq != nullptr ? static_cast<std::size_t>(eq - text) : length;
    EnvVar var;
    appendUtf16FromSystem(var.name, text, nameLength);
    if (eq != nullptr) appendUtf16FromSystem(var.value, eq + 1, length - nameLength - 1);
    out.push_back(std::move(var));
  }
  return SysError();
}

bool environmentNamesIgnoreCase() { return false; }

}  // namespace qo::platform

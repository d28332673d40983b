#include "qo/platform/Environment.h"

#include <windows.h>

namespace qo::platform {

char const* environmentApiName() { return "GetEnvironmentStringsW"; }

SysError readEnvironment(std::vector<EnvVar>& out) {
  out.clear();
  wchar_t* block = GetEnvironmentStringsW();
  if (block == nullptr) return lastSysError();
  // "name=value\0name=value\0\0"; the hidden per-drive entries ("=C:=C:\x")
  // start with '=', so the separator is searched from the second character.
  for (wchar_t const* entry = block; *entry != L'\0';) {
    std::size_t length = wcslen(entry);
    std::size_t eq = 1;
    while (eq < length && entry[eq] != L'=') ++eq;
    EnvVar var;
    var.name.assign(reinterpret_cast<char16_t const*>(entry), eq);
    if (eq < length) var.value.assign(reinterpret_cast<char16_t const*>(entry) + eq + 1, length - eq - 1);
    out.push_back(std::move(var));
    entry += length + 1;
  }
  FreeEnvironmentStringsW(block);
  return SysError();
}

bool environmentNamesIgnoreCase() { return true; }

}  // namespace qo::platform

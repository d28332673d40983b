// qo/platform/Registry.h - typed values under hierarchical keys in the
// Windows registry (internal, OS-free).
//
// Windows: RegCreateKeyExW, RegOpenKeyExW, RegGetValueW, RegSetValueExW,
// RegDeleteKeyValueW, RegDeleteTreeW, RegDeleteKeyExW, RegEnumValueW, always
// in the 64-bit view (KEY_WOW64_64KEY). POSIX has no registry: every
// function returns ENOSYS and registryAvailable() is false (the settings
// class keeps its values in files there).
// Values travel as the registry's own bytes: REG_SZ and REG_MULTI_SZ as
// UTF-16 with their terminating NULs, REG_DWORD/REG_QWORD little-endian.
//
//   std::vector<unsigned char> data;
//   RegType type;
//   bool found;
//   regGetValue(RegRoot::CurrentUser, u"Software\\Acme", u"size", found, type, data);
//
// Never throws; thread-safe.
#ifndef QO_PLATFORM_REGISTRY_H
#define QO_PLATFORM_REGISTRY_H

#include <string>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

enum class RegRoot { CurrentUser, LocalMachine };

/// The registry's type numbers.
enum class RegType : unsigned {
  None = 0,
  String = 1,
  ExpandString = 2,
  Binary = 3,
  Dword = 4,
  MultiString = 7,
  Qword = 11
};

/// Whether this system has a registry.
bool registryAvailable();
/// Creates the key (and its parents) when missing and sets the value.
SysError regSetValue(RegRoot root, std::u16string const& key, std::u16string const& name, RegType type,
                     std::vector<unsigned char> const& data);
/// Reads the value; found false (no error) when the key or value is missing.
SysError regGetValue(RegRoot root, std::u16string const& key, std::u16string const& name, bool& found, RegType& type,
                     std::vector<unsigned char>& data);
/// Deletes the value; found false when it (or its key) was not there.
SysError regDeleteValue(RegRoot root, std::u16string const& key, std::u16string const& name, bool& found);
/// Deletes the key with everything below it; found false when missing.
SysError regDeleteKey(RegRoot root, std::u16string const& key, bool& found);
/// The names of the key's values; found false when the key is missing.
SysError regListValues(RegRoot root, std::u16string const& key, bool& found, std::vector<std::u16string>& names);

}  // namespace qo::platform

#endif  // QO_PLATFORM_REGISTRY_H

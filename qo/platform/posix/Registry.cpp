#include "qo/platform/Registry.h"

#include <cerrno>

namespace qo::platform {

namespace {
SysError none() { return SysError{ENOSYS, sysErrorText(ENOSYS)}; }
}  // namespace

bool registryAvailable() { return false; }

SysError regSetValue(RegRoot, std::u16string const&, std::u16string const&, RegType,
                     std::vector<unsigned char> const&) {
  return none();
}

SysError regGetValue(RegRoot, std::u16string const&, std::u16string const&, bool& found, RegType& type,
                     std::vector<unsigned char>& data) {
  found = false;
  type = RegType::None;
  data.clear();
  return none();
}

SysError regDeleteValue(RegRoot, std::u16string const&, std::u16string const&, bool& found) {
  found = false;
  return none();
}

SysError regDeleteKey(RegRoot, std::u16string const&, bool& found) {
  found = false;
  return none();
}

SysError regListValues(RegRoot, std::u16string const&, bool& found, std::vector<std::u16string>& names) {
  found = false;
  names.clear();
  return none();
}

}  // namespace qo::platform

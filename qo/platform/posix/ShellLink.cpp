#include "qo/platform/ShellLink.h"

#include <cerrno>

namespace qo::platform {

bool shellLinkSupported() { return false; }

SysError shellLinkCreate(std::u16string const&, std::u16string const&, std::u16string const&,
                         std::u16string const&, std::u16string const&, char const*& api) {
  api = "IShellLinkW";
  return sysErrorOf(ENOTSUP, api);
}

SysError shellLinkGetPath(std::u16string const&, std::u16string& target, char const*& api) {
  target.clear();
  api = "IShellLinkW";
  return sysErrorOf(ENOTSUP, api);
}

}  // namespace qo::platform

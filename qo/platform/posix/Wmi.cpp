#include "qo/platform/Wmi.h"

#include <cerrno>

namespace qo::platform {

bool wmiAvailable() { return false; }

SysError wmiQuery(std::u16string const&, std::u16string const&, std::vector<WmiRow>& rows, char const*& failedApi) {
  rows.clear();
  failedApi = "ExecQuery";
  return sysErrorOf(ENOSYS, nullptr);
}

}  // namespace qo::platform

#include "qo/platform/NetworkShare.h"

#include <string>

#include <windows.h>
#include <winnetwk.h>

namespace qo::platform {

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");

wchar_t const* wide(std::u16string const& text) { return reinterpret_cast<wchar_t const*>(text.c_str()); }

}  // namespace

bool netShareHasConnectCall() { return true; }

NetShareFailure netShareFailureOf(std::uint32_t code) {
  switch (code) {
    case ERROR_BAD_NETPATH:
    case ERROR_BAD_NET_NAME:
    case ERROR_NOT_CONNECTED:
    case ERROR_CONNECTION_UNAVAIL:
    case ERROR_NO_NET_OR_BAD_PATH:
    case ERROR_NETWORK_UNREACHABLE: return NetShareFailure::NotConnected;
    case ERROR_ACCESS_DENIED:
    case ERROR_LOGON_FAILURE:
    case ERROR_ACCOUNT_RESTRICTION:
    case ERROR_PASSWORD_EXPIRED:
    case ERROR_BAD_USERNAME:
    case ERROR_INVALID_PASSWORD: return NetShareFailure::NeedsCredentials;
    default: return NetShareFailure::Other;
  }
}

SysError netShareConnect(std::u16string const& remote, std::u16string const& user, std::u16string const& secret) {
  std::wstring name(wide(remote));
  NETRESOURCEW resource = {};
  resource.dwType = RESOURCETYPE_DISK;
  resource.lpRemoteName = name.data();
  // Temporary: the connection is not restored at the next logon.
  DWORD const code = WNetAddConnection2W(&resource, user.empty() ? nullptr : wide(secret),
                                         user.empty() ? nullptr : wide(user), CONNECT_TEMPORARY);
  return code == NO_ERROR ? SysError{} : sysErrorOf(code);
}

SysError netShareDisconnect(std::u16string const& remote) {
  DWORD const code = WNetCancelConnection2W(wide(remote), 0, TRUE);
  return code == NO_ERROR ? SysError{} : sysErrorOf(code);
}

SysError netShareIsMounted(std::u16string const&, bool& mounted) {
  mounted = false;
  return sysErrorOf(ERROR_NOT_SUPPORTED);
}

}  // namespace qo::platform

#include "qo/platform/KnownPaths.h"

#include <windows.h>

#include <knownfolders.h>
#include <objbase.h>
#include <shlobj.h>

namespace qo::platform {

SysError knownPath(KnownFolder which, std::u16string& out) {
  out.clear();
  if (which == KnownFolder::Temp) {
    wchar_t buffer[MAX_PATH + 2];
    DWORD length = GetTempPathW(MAX_PATH + 2, buffer);
    if (length == 0 || length > MAX_PATH + 1) return lastSysError();
    out.assign(reinterpret_cast<char16_t const*>(buffer), length);
  } else {
    KNOWNFOLDERID const* id = &FOLDERID_Profile;
    if (which == KnownFolder::UserAppData) id = &FOLDERID_RoamingAppData;
    if (which == KnownFolder::MachineAppData) id = &FOLDERID_ProgramData;
    if (which == KnownFolder::ProgramFiles) id = &FOLDERID_ProgramFiles;
    wchar_t* path = nullptr;
    HRESULT hr = SHGetKnownFolderPath(*id, KF_FLAG_DEFAULT, nullptr, &path);
    if (FAILED(hr)) {
      CoTaskMemFree(path);
      return SysError{static_cast<std::uint32_t>(hr), sysErrorText(static_cast<std::uint32_t>(hr))};
    }
    out = reinterpret_cast<char16_t const*>(path);
    CoTaskMemFree(path);
  }
  // "C:\" keeps its separator; any other trailing one goes.
  while (out.size() > 3 && (out.back() == u'\\' || out.back() == u'/')) out.pop_back();
  return SysError();
}

}  // namespace qo::platform

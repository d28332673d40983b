#include "qo/platform/LastError.h"

#include <windows.h>

namespace qo::platform {

std::uint32_t getLastSysError() { return GetLastError(); }
void setLastSysError(std::uint32_t code) { SetLastError(code); }

std::string sysErrorText(std::uint32_t code) {
  wchar_t* wide = nullptr;
  DWORD n = FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                           nullptr, code, 0, reinterpret_cast<wchar_t*>(&wide), 0, nullptr);
  if (n == 0 || wide == nullptr) return "System error " + std::to_string(code);
  while (n > 0 && (wide[n - 1] == L'\r' || wide[n - 1] == L'\n' || wide[n - 1] == L' ')) --n;
  int bytes = WideCharToMultiByte(CP_UTF8, 0, wide, static_cast<int>(n), nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
  if (bytes > 0) WideCharToMultiByte(CP_UTF8, 0, wide, static_cast<int>(n), text.data(), bytes, nullptr, nullptr);
  LocalFree(wide);
  return text;
}

SysError lastSysError(char const* api) { return sysErrorOf(getLastSysError(), api); }

SysError sysErrorOf(std::uint32_t code, char const* api) { return SysError{code, sysErrorText(code), api}; }

}  // namespace qo::platform

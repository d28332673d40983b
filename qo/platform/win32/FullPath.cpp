#include "qo/platform/FullPath.h"

#include <windows.h>

namespace qo::platform {

SysError getFullPath(char16_t const* path, std::size_t length, std::u16string& out) {
  static_assert(sizeof(wchar_t) == sizeof(char16_t), "Windows wide characters are UTF-16 units");
  out.clear();
  if (length == 0) return SysError{ERROR_INVALID_NAME, sysErrorText(ERROR_INVALID_NAME)};
  std::wstring input(reinterpret_cast<wchar_t const*>(path), length);  // NUL-terminated copy
  std::wstring buffer(MAX_PATH, L'\0');
  // The answer may grow between calls if the current directory changes, so
  // ask again until it fits.
  for (int attempt = 0; attempt < 8; ++attempt) {
    DWORD const n = GetFullPathNameW(input.c_str(), static_cast<DWORD>(buffer.size()), &buffer[0], nullptr);
    if (n == 0) return lastSysError();
    if (n < buffer.size()) {
      out.assign(reinterpret_cast<char16_t const*>(buffer.data()), n);
      return SysError{};
    }
    buffer.assign(n, L'\0');  // n counts the terminating NUL here
  }
  return SysError{ERROR_BUFFER_OVERFLOW, sysErrorText(ERROR_BUFFER_OVERFLOW)};
}

}  // namespace qo::platform

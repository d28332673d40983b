// qo/platform/win32/Win32Text.h - UTF-8 to UTF-16 for the Windows sources
// of the platform services; internal.
#ifndef QO_PLATFORM_WIN32_WIN32TEXT_H
#define QO_PLATFORM_WIN32_WIN32TEXT_H

#include <string>

#include <windows.h>

namespace qo::platform::win32text {

/// The UTF-16 form of a NUL-terminated UTF-8 text; "" for null, empty or
/// invalid input.
inline std::wstring widen(char const* utf8) {
  if (!utf8 || !*utf8) return std::wstring();
  int n = MultiByteToWideChar(CP_UTF8, 0, utf8, -1, nullptr, 0);
  if (n <= 0) return std::wstring();
  std::wstring wide(static_cast<std::size_t>(n), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, utf8, -1, wide.data(), n);
  wide.resize(static_cast<std::size_t>(n - 1));
  return wide;
}

}  // namespace qo::platform::win32text

#endif  // QO_PLATFORM_WIN32_WIN32TEXT_H

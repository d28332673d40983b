#include "qo/platform/Registry.h"

#include <windows.h>

namespace qo::platform {

namespace {

HKEY rootKey(RegRoot root) { return root == RegRoot::LocalMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER; }

wchar_t const* wide(std::u16string const& text) { return reinterpret_cast<wchar_t const*>(text.c_str()); }

SysError status(LSTATUS code) {
  return SysError{static_cast<std::uint32_t>(code), sysErrorText(static_cast<std::uint32_t>(code))};
}

bool missing(LSTATUS code) { return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND; }

}  // namespace

bool registryAvailable() { return true; }

SysError regSetValue(RegRoot root, std::u16string const& key, std::u16string const& name, RegType type,
                     std::vector<unsigned char> const& data) {
  HKEY handle = nullptr;
  LSTATUS rc = RegCreateKeyExW(rootKey(root), wide(key), 0, nullptr, REG_OPTION_NON_VOLATILE,
                               KEY_SET_VALUE | KEY_WOW64_64KEY, nullptr, &handle, nullptr);
  if (rc != ERROR_SUCCESS) return status(rc);
  rc = RegSetValueExW(handle, wide(name), 0, static_cast<DWORD>(type), data.empty() ? nullptr : data.data(),
                      static_cast<DWORD>(data.size()));
  RegCloseKey(handle);
  return rc == ERROR_SUCCESS ? SysError() : status(rc);
}

SysError regGetValue(RegRoot root, std::u16string const& key, std::u16string const& name, bool& found, RegType& type,
                     std::vector<unsigned char>& data) {
  found = false;
  type = RegType::None;
  data.clear();
  HKEY handle = nullptr;
  LSTATUS rc = RegOpenKeyExW(rootKey(root), wide(key), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &handle);
  if (missing(rc)) return SysError();
  if (rc != ERROR_SUCCESS) return status(rc);
  // RRF_NOEXPAND: the bytes as stored; the caller decides about expansion.
  DWORD const flags = RRF_RT_ANY | RRF_NOEXPAND;
  for (;;) {
    DWORD size = 0;
    DWORD kind = 0;
    rc = RegGetValueW(handle, nullptr, wide(name), flags, &kind, nullptr, &size);
    if (rc == ERROR_SUCCESS) {
      data.resize(size);
      rc = RegGetValueW(handle, nullptr, wide(name), flags, &kind, size ? data.data() : nullptr, &size);
      if (rc == ERROR_MORE_DATA) continue;  // grew between the two calls
    }
    RegCloseKey(handle);
    if (missing(rc)) return SysError();
    if (rc != ERROR_SUCCESS) return status(rc);
    data.resize(size);
    found = true;
    type = static_cast<RegType>(kind);
    return SysError();
  }
}

SysError regDeleteValue(RegRoot root, std::u16string const& key, std::u16string const& name, bool& found) {
  found = false;
  HKEY handle = nullptr;
  LSTATUS rc = RegOpenKeyExW(rootKey(root), wide(key), 0, KEY_SET_VALUE | KEY_WOW64_64KEY, &handle);
  if (missing(rc)) return SysError();
  if (rc != ERROR_SUCCESS) return status(rc);
  rc = RegDeleteValueW(handle, wide(name));
  RegCloseKey(handle);
  if (missing(rc)) return SysError();
  if (rc != ERROR_SUCCESS) return status(rc);
  found = true;
  return SysError();
}

SysError regDeleteKey(RegRoot root, std::u16string const& key, bool& found) {
  found = false;
  HKEY handle = nullptr;
  LSTATUS rc = RegOpenKeyExW(rootKey(root), wide(key), 0, KEY_ALL_ACCESS | KEY_WOW64_64KEY, &handle);
  if (missing(rc)) return SysError();
  if (rc != ERROR_SUCCESS) return status(rc);
  rc = RegDeleteTreeW(handle, nullptr);
  RegCloseKey(handle);
  if (rc != ERROR_SUCCESS && !missing(rc)) return status(rc);
  rc = RegDeleteKeyExW(rootKey(root), wide(key), KEY_WOW64_64KEY, 0);
  if (rc != ERROR_SUCCESS && !missing(rc)) return status(rc);
  found = true;
  return SysError();
}

SysError regListValues(RegRoot root, std::u16string const& key, bool& found, std::vector<std::u16string>& names) {
  found = false;
  names.clear();
  HKEY handle = nullptr;
  LSTATUS rc = RegOpenKeyExW(rootKey(root), wide(key), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &handle);
  if (missing(rc)) return SysError();
  if (rc != ERROR_SUCCESS) return status(rc);
  found = true;
  for (DWORD index = 0;; ++index) {
    wchar_t name[16384];
    DWORD length = 16384;
    rc = RegEnumValueW(handle, index, name, &length, nullptr, nullptr, nullptr, nullptr);
    if (rc == ERROR_NO_MORE_ITEMS) break;
    if (rc != ERROR_SUCCESS) {
      RegCloseKey(handle);
      return status(rc);
    }
    names.emplace_back(reinterpret_cast<char16_t const*>(name), length);
  }
  RegCloseKey(handle);
  return SysError();
}

}  // namespace qo::platform

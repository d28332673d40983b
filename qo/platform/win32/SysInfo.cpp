#include "qo/platform/SysInfo.h"

#include <windows.h>

#include <string>

namespace qo::platform {

namespace {

using RtlGetVersionFunc = LONG(WINAPI*)(OSVERSIONINFOEXW*);

std::u16string decimal(unsigned long value) {
  std::u16string digits;
  do {
    digits.insert(digits.begin(), static_cast<char16_t>(u'0' + value % 10));
    value /= 10;
  } while (value != 0);
  return digits;
}

bool isWindows64Bit() {
#if defined(_WIN64)
  return true;
#else
  BOOL wow64 = FALSE;
  return IsWow64Process(GetCurrentProcess(), &wow64) && wow64;
#endif
}

}  // namespace

SysError getOsInfo(OsInfo& out) {
  out = OsInfo();
  out.type = u"Windows";
  out.is64Bit = isWindows64Bit();
  // GetVersionExW reports the version the executable's manifest claims to
  // know; the kernel's own answer is what belongs in a diagnostic header.
  OSVERSIONINFOEXW info = {};
  info.dwOSVersionInfoSize = sizeof info;
  SysError error;
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  auto rtlGetVersion =
      ntdll ? reinterpret_cast<RtlGetVersionFunc>(reinterpret_cast<void*>(GetProcAddress(ntdll, "RtlGetVersion")))
            : nullptr;
  if (!rtlGetVersion || rtlGetVersion(&info) != 0) {
    info.dwOSVersionInfoSize = sizeof info;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    if (!GetVersionExW(reinterpret_cast<OSVERSIONINFOW*>(&info))) error = lastSysError();
#pragma GCC diagnostic pop
  }
  out.versionMajor = static_cast<int>(info.dwMajorVersion);
  out.versionMinor = static_cast<int>(info.dwMinorVersion);
  out.versionUpdate = static_cast<int>(info.dwBuildNumber);
  std::u16string description = u"Microsoft Windows ";
  description += decimal(info.dwMajorVersion) + u"." + decimal(info.dwMinorVersion) + u"." + decimal(info.dwBuildNumber);
  if (info.szCSDVersion[0] != 0) {
    description += u" ";
    description += reinterpret_cast<char16_t const*>(info.szCSDVersion);
  }
  description += info.wProductType == VER_NT_WORKSTATION ? u" workstation" : u" server";
  description += out.is64Bit ? u" x64" : u" x86";
  out.description = description;
  return error;
}

SysError getMemoryInfo(MemoryInfo& out) {
  out = MemoryInfo();
  MEMORYSTATUSEX status = {};
  status.dwLength = sizeof status;
  if (!GlobalMemoryStatusEx(&status)) return lastSysError();
  out.totalPhysical = status.ullTotalPhys;
  out.freePhysical = status.ullAvailPhys;
  return SysError();
}

int getCoreCount() {
  DWORD count = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
  if (count == 0) {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    count = info.dwNumberOfProcessors;
  }
  return count >= 1 ? static_cast<int>(count) : 1;
}

SysError getMachineName(std::u16string& out) {
  out.clear();
  wchar_t name[256] = {};
  DWORD size = 256;
  if (!GetComputerNameExW(ComputerNameDnsHostname, name, &size)) {
    size = 256;
    if (!GetComputerNameW(name, &size)) return lastSysError();
  }
  out.assign(reinterpret_cast<char16_t const*>(name), size);
  return SysError();
}

SysError getUptimeMillis(long long& out) {
  out = static_cast<long long>(GetTickCount64());
  return SysError();
}

SysError getProcessElevated(bool& out) {
  out = false;
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return lastSysError();
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  SysError error;
  if (GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &size))
    out = elevation.TokenIsElevated != 0;
  else
    error = lastSysError();
  CloseHandle(token);
  return error;
}

namespace {

// A REG_DWORD under HKLM (64-bit view); missing gives fallback.
SysError machineDword(wchar_t const* key, wchar_t const* name, DWORD fallback, DWORD& out) {
  DWORD size = sizeof out;
  HKEY handle = nullptr;
  LSTATUS status = RegOpenKeyExW(HKEY_LOCAL_MACHINE, key, 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &handle);
  if (status == ERROR_SUCCESS) {
    status = RegGetValueW(handle, nullptr, name, RRF_RT_REG_DWORD, nullptr, &out, &size);
    RegCloseKey(handle);
  }
  if (status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND) {
    out = fallback;
    return SysError();
  }
  if (status != ERROR_SUCCESS) return SysError{static_cast<std::uint32_t>(status), sysErrorText(status)};
  return SysError();
}

}  // namespace

SysError getLongPathsEnabled(bool& out) {
  DWORD value = 0;
  SysError error = machineDword(L"SYSTEM\\CurrentControlSet\\Control\\FileSystem", L"LongPathsEnabled", 0, value);
  out = value != 0;
  return error;
}

SysError getUacEnabled(bool& out) {
  DWORD value = 1;
  SysError error =
      machineDword(L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Policies\\System", L"EnableLUA", 1, value);
  out = value != 0;
  return error;
}

bool hasWindowsFeatureSwitches() { return true; }

}  // namespace qo::platform

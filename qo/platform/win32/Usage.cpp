#include "qo/platform/Usage.h"

#include <string>

#include <windows.h>
#include <winioctl.h>

namespace qo::platform {

namespace {

std::uint64_t fromFileTime(FILETIME const& t) {
  return (static_cast<std::uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
}

}  // namespace

SysError usageCpuTimes(CpuTimes& out) {
  out = CpuTimes();
  FILETIME idle, kernel, user;
  if (!GetSystemTimes(&idle, &kernel, &user)) return lastSysError();
  // Kernel time includes the idle time.
  out.total = fromFileTime(kernel) + fromFileTime(user);
  out.busy = out.total - fromFileTime(idle);
  return SysError{};
}

SysError usageDiskCounters(DiskCounters& out) {
  out = DiskCounters();
  // Drive numbers may have gaps (a removed disk); look at a fixed range.
  for (int i = 0; i < 32; ++i) {
    std::wstring const name = L"\\\\.\\PhysicalDrive" + std::to_wstring(i);
    // No access rights are needed for the performance query.
    HANDLE disk = CreateFileW(name.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr);
    if (disk == INVALID_HANDLE_VALUE) continue;
    DISK_PERFORMANCE perf;
    DWORD got = 0;
    BOOL const ok = DeviceIoControl(disk, IOCTL_DISK_PERFORMANCE, nullptr, 0, &perf, sizeof perf, &got, nullptr);
    CloseHandle(disk);
    if (!ok || got < sizeof perf) continue;
    // Both in 100 ns units: the time of the query minus the time idle.
    std::uint64_t const query = static_cast<std::uint64_t>(perf.QueryTime.QuadPart);
    std::uint64_t const idle = static_cast<std::uint64_t>(perf.IdleTime.QuadPart);
    out.busyMillis.push_back(query > idle ? (query - idle) / 10000 : 0);
    out.operations += perf.ReadCount + perf.WriteCount;
  }
  return SysError{};
}

SysError usageIdleMillis(std::int64_t& idleMillis, bool& known) {
  idleMillis = 0;
  known = false;
  LASTINPUTINFO info;
  info.cbSize = sizeof info;
  if (!GetLastInputInfo(&info)) return lastSysError();
  // Both are 32-bit tick counts; the difference is right across a wrap.
  DWORD const now = static_cast<DWORD>(GetTickCount64());
  idleMillis = static_cast<std::int64_t>(static_cast<DWORD>(now - info.dwTime));
  known = true;
  return SysError{};
}

std::int64_t usageNowMillis() { return static_cast<std::int64_t>(GetTickCount64()); }

}  // namespace qo::platform

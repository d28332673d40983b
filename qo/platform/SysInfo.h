// qo/platform/SysInfo.h - what the machine and its operating system are
// (internal, OS-free).
//
// The session log's header describes the system it was written on; these
// functions gather the facts. Windows: RtlGetVersion (the version the
// kernel reports, not the compatibility-shimmed GetVersionEx value),
// GlobalMemoryStatusEx, GetActiveProcessorCount, GetComputerNameExW,
// GetTickCount64, GetTokenInformation (TokenElevation), RegGetValueW (the
// long-path and UAC switches). POSIX: uname, the "/etc/os-release"
// description, sysconf, gethostname, clock_gettime(CLOCK_BOOTTIME), geteuid.
//
//   OsInfo os;
//   if (!getOsInfo(os)) use(os.type, os.versionMajor, os.description);
//
// Never throws; thread-safe.
#ifndef QO_PLATFORM_SYSINFO_H
#define QO_PLATFORM_SYSINFO_H

#include <string>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct OsInfo {
  /// "Windows" or the kernel's name ("Linux", "Darwin", ...).
  std::u16string type;
  /// Windows: major.minor.build; POSIX: the kernel release's first three
  /// numbers ("6.1.0-13-amd64" gives 6, 1, 0).
  int versionMajor = 0;
  int versionMinor = 0;
  int versionUpdate = 0;
  /// The operating system is 64-bit (a 32-bit process on a 64-bit Windows
  /// counts as 64-bit).
  bool is64Bit = false;
  /// A human-readable description, e.g. "Microsoft Windows 10.0.19045" or
  /// "Debian GNU/Linux 12 (bookworm); Linux 6.1.0-13-amd64 x86_64".
  std::u16string description;
};

/// Fills out. Fails only when the OS refuses the version query; out then
/// holds what could be learnt.
SysError getOsInfo(OsInfo& out);

struct MemoryInfo {
  unsigned long long totalPhysical = 0;  ///< bytes
  unsigned long long freePhysical = 0;   ///< bytes available to programs
};

/// Fills out; on failure out holds zeros.
SysError getMemoryInfo(MemoryInfo& out);

/// The number of logical processors the OS runs this process's threads on;
/// at least 1.
int getCoreCount();

/// The machine's host name (Windows: the DNS host name, else the NetBIOS
/// name).
SysError getMachineName(std::u16string& out);

/// Milliseconds since the system started, including time asleep where the
/// OS counts it (CLOCK_BOOTTIME; GetTickCount64).
SysError getUptimeMillis(long long& out);

/// Whether this process runs with full administrator rights: Windows the
/// token's elevation, POSIX an effective user id of 0.
SysError getProcessElevated(bool& out);

/// Windows: whether the system lets programs that declare it use paths
/// beyond MAX_PATH (LongPathsEnabled); a missing switch counts as false.
/// POSIX: has no such limit to switch; out is false (see
/// hasWindowsFeatureSwitches()).
SysError getLongPathsEnabled(bool& out);

/// Windows: whether User Account Control is on (EnableLUA; missing counts as
/// on, as Windows treats it). POSIX: false.
SysError getUacEnabled(bool& out);

/// True where the Windows feature switches above exist (Windows).
bool hasWindowsFeatureSwitches();

}  // namespace qo::platform

#endif  // QO_PLATFORM_SYSINFO_H

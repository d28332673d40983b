// qo/sys/CSystemManager.h - what machine and operating system the process
// runs on.
//
// One process-wide instance (get()). The answers come fresh from the OS on
// every call (memory and uptime change; the rest is cheap to ask). On
// Windows the version is the kernel's own (RtlGetVersion), not the one a
// program's manifest caps GetVersionEx at. Failures are CSystemErrors whose
// "api" names the Windows call (the POSIX build names the call it stands
// in for).
//
//   P<CSystemManager> const& sys = CSystemManager::get();
//   print(sys->getOSDescription(), sys->getProcessorCount(), sys->getUptime().toStringHMS());
//
// Thread-safe.
#ifndef QO_SYS_CSYSTEMMANAGER_H
#define QO_SYS_CSYSTEMMANAGER_H

#include "qo/core/CBase.h"
#include "qo/core/CTime.h"
#include "qo/core/CTimeSpan.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"

namespace qo {

/// System information. Thread-safe.
class QO_API CSystemManager : public CBase {
public:
  /// The process-wide instance, created on first use. Thread-safe.
  static P<CSystemManager> const& get();

  CSystemManager();
  ~CSystemManager() override;

  /// "Windows", or the kernel's name ("Linux"). Throws CSystemError (api
  /// "RtlGetVersion"). Thread-safe.
  String getOSName() const;
  /// "major.minor.build" (Windows) or the kernel release's first three
  /// numbers ("6.1.0"). Throws CSystemError. Thread-safe.
  String getOSVersion() const;
  /// The numbers of getOSVersion(), in its order. Throws CSystemError.
  /// Thread-safe.
  void getOSVersionNumbers(int& major, int& minor, int& build) const;
  /// A readable description ("Microsoft Windows 10.0.19045 workstation x64",
  /// "Debian GNU/Linux 12 (bookworm); Linux 6.1.0-13-amd64 x86_64"). Throws
  /// CSystemError. Thread-safe.
  String getOSDescription() const;
  /// Whether the OS is 64-bit. Throws CSystemError. Thread-safe.
  bool isOS64Bit() const;
  /// The machine's host name. Throws CSystemError (api
  /// "GetComputerNameExW"). Thread-safe.
  String getMachineName() const;
  /// Logical processors online in the machine; at least 1. Never throws.
  /// Thread-safe.
  int getProcessorCount() const;
  /// Physical memory in bytes. Throws CSystemError (api
  /// "GlobalMemoryStatusEx"). Thread-safe.
  unsigned long long getTotalMemory() const;
  /// Physical memory in bytes that programs can have now. Throws
  /// CSystemError. Thread-safe.
  unsigned long long getAvailableMemory() const;
  /// Time since the system started. Throws CSystemError (api
  /// "GetTickCount64"). Thread-safe.
  CTimeSpan getUptime() const;
  /// When the system started: now minus getUptime(), to the millisecond.
  /// Throws CSystemError. Thread-safe.
  CTime getBootTime() const;
};

}  // namespace qo

#endif  // QO_SYS_CSYSTEMMANAGER_H

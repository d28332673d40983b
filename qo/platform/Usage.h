// qo/platform/Usage.h - how busy the machine is and whether someone uses it
// (internal, OS-free).
//
// Counters only: the caller keeps the previous reading and divides the
// differences by the time between them. Windows: GetSystemTimes,
// DeviceIoControl(IOCTL_DISK_PERFORMANCE) on \\.\PhysicalDriveN,
// GetLastInputInfo with GetTickCount. POSIX (Linux):
// the first line of /proc/stat, /proc/diskstats for the whole disks that
// /sys/block lists (loop and RAM disks left out), the access time of the
// terminals in /dev/pts and the virtual consoles (the tty layer stamps it
// on input, as `w` reads it). The power source comes from Power.h.
//
//   CpuTimes a, b; usageCpuTimes(a); ...; usageCpuTimes(b);
//   double busy = double(b.busy - a.busy) / double(b.total - a.total);
//
// Never throws; thread-safe.
#ifndef QO_PLATFORM_USAGE_H
#define QO_PLATFORM_USAGE_H

#include <cstdint>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

/// Processor time of all processors since boot, in the OS's units.
struct CpuTimes {
  std::uint64_t busy = 0;   ///< user, system, interrupts, stolen
  std::uint64_t total = 0;  ///< busy plus idle and waiting for I/O
};
/// Reads the counters; fails when the OS does not give them.
SysError usageCpuTimes(CpuTimes& out);

/// Disk activity since boot.
struct DiskCounters {
  /// Per disk, in an order that stays the same between readings:
  /// milliseconds during which the disk had requests in flight.
  std::vector<std::uint64_t> busyMillis;
  /// Read and write requests completed, all disks together.
  std::uint64_t operations = 0;
};
/// Reads the counters; busyMillis stays empty when the OS tells nothing.
SysError usageDiskCounters(DiskCounters& out);

/// Milliseconds since the last keyboard or mouse input of the user;
/// known false when the OS does not tell.
SysError usageIdleMillis(std::int64_t& idleMillis, bool& known);

/// A monotonic clock in milliseconds.
std::int64_t usageNowMillis();

}  // namespace qo::platform

#endif  // QO_PLATFORM_USAGE_H

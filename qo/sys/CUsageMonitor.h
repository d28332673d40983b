// qo/sys/CUsageMonitor.h - samples how the machine is used, from the
// system's own counters.
//
// - User activity: the time since the last input (Windows GetLastInputInfo;
//   Linux the latest input on a terminal or virtual console, as `w` shows
//   it; unknown when there is none, e.g. a desktop session only).
// - Processor load: GetSystemTimes or /proc/stat, all processors together,
//   every process's work counted.
// - Disk load: the busiest disk's share of time with requests in flight and
//   the requests completed (Windows IOCTL_DISK_PERFORMANCE, unknown where
//   the disks do not report; Linux /proc/diskstats of the whole disks).
// - Battery: the power source CPowerState reads (a machine without a
//   system battery is not on battery).
// - Full screen: CVisibleProcessMonitor (unknown where the system cannot
//   tell).
// Loads cover the time since the previous sample (the first covers the time
// since construction); a sample taken before the counters moved repeats the
// previous loads.
//
//   P<CUsageMonitor> monitor = newP<CUsageMonitor>();
//   ... later ...
//   IUsageSampler::CSample s = monitor->sample();
//
// Thread-safe.
#ifndef QO_SYS_CUSAGEMONITOR_H
#define QO_SYS_CUSAGEMONITOR_H

#include <cstdint>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/sys/IUsageSampler.h"
#include "qo/thread/CMutex.h"

namespace qo {

/// The system's usage sampler. Thread-safe.
class QO_API CUsageMonitor : public CBase, public IUsageSampler {
public:
  /// Reads the counters that the first sample is measured from. Never
  /// throws for counters the system does not give.
  CUsageMonitor();
  ~CUsageMonitor() override;
  CUsageMonitor(CUsageMonitor const&) = delete;
  CUsageMonitor& operator=(CUsageMonitor const&) = delete;

  /// Takes a sample (see the top of the file). Never throws. Thread-safe.
  CSample sample() override;

private:
  mutable CMutex m_mutex;
  bool m_haveCpu = false;
  std::uint64_t m_cpuBusy = 0, m_cpuTotal = 0;
  std::vector<std::uint64_t> m_diskBusy;
  std::uint64_t m_diskOperations = 0;
  std::int64_t m_diskAt = 0;  // monotonic milliseconds of the disk reading
  bool m_haveDisk = false;
  CSample m_last;
};

}  // namespace qo

#endif  // QO_SYS_CUSAGEMONITOR_H

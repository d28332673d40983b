#include "qo/sys/CUsageMonitor.h"

#include "qo/core/CError.h"
#include "qo/platform/Power.h"
#include "qo/platform/Usage.h"
#include "qo/sys/CVisibleProcessMonitor.h"
#include "qo/thread/CMutexLock.h"

#include <algorithm>

namespace qo {

CUsageMonitor::CUsageMonitor() {
  platform::CpuTimes cpu;
  if (!platform::usageCpuTimes(cpu)) {
    m_haveCpu = true;
    m_cpuBusy = cpu.busy;
    m_cpuTotal = cpu.total;
  }
  platform::DiskCounters disk;
  if (!platform::usageDiskCounters(disk) && !disk.busyMillis.empty()) {
    m_haveDisk = true;
    m_diskBusy = disk.busyMillis;
    m_diskOperations = disk.operations;
    m_diskAt = platform::usageNowMillis();
  }
}

CUsageMonitor::~CUsageMonitor() = default;

IUsageSampler::CSample CUsageMonitor::sample() {
  CMutexLock lock(m_mutex);
  CSample s = m_last;
  s.time = CTime::now();

  platform::CpuTimes cpu;
  if (platform::usageCpuTimes(cpu)) {
    s.cpuBusy = -1;
    m_haveCpu = false;
  } else {
    // Counters that did not move (a sample within one clock tick) or went
    // back (a wrapped or reset counter) keep the previous load.
    if (m_haveCpu && cpu.total > m_cpuTotal && cpu.busy >= m_cpuBusy)
      s.cpuBusy = std::min(1.0, double(cpu.busy - m_cpuBusy) / double(cpu.total - m_cpuTotal));
    if (!m_haveCpu || cpu.total != m_cpuTotal) {
      m_cpuBusy = cpu.busy;
      m_cpuTotal = cpu.total;
    }
    m_haveCpu = true;
  }

  platform::DiskCounters disk;
  std::int64_t const now = platform::usageNowMillis();
  if (platform::usageDiskCounters(disk) || disk.busyMillis.empty()) {
    s.diskBusy = -1;
    s.diskOperations = -1;
    m_haveDisk = false;
  } else {
    bool const sameDisks = m_haveDisk && disk.busyMillis.size() == m_diskBusy.size();
    if (sameDisks) {
      s.diskOperations =
          disk.operations >= m_diskOperations ? static_cast<long long>(disk.operations - m_diskOperations) : 0;
      if (now > m_diskAt) {
        std::uint64_t busiest = 0;
        for (std::size_t i = 0; i < disk.busyMillis.size(); ++i) {
          if (disk.busyMillis[i] >= m_diskBusy[i]) busiest = std::max(busiest, disk.busyMillis[i] - m_diskBusy[i]);
        }
        s.diskBusy = std::min(1.0, double(busiest) / double(now - m_diskAt));
      }
    }
    m_diskOperations = disk.operations;
    // Busy time needs time between readings; within one millisecond the
    // earlier reading stays the base.
    if (!sameDisks || now > m_diskAt) {
      m_diskBusy = disk.busyMillis;
      m_diskAt = now;
    }
    m_haveDisk = true;
  }

  std::int64_t idle = 0;
  bool known = false;
  s.idleMillis = !platform::usageIdleMillis(idle, known) && known ? idle : -1;

  // A machine without a system battery runs on mains.
  platform::PowerStatus power;
  if (platform::powerGetStatus(nullptr, power)) {
    s.onBattery = TriUnknown;
  } else if (!power.hasBattery) {
    s.onBattery = TriNo;
  } else {
    s.onBattery = power.source == platform::PowerSource::Battery ? TriYes
                  : power.source == platform::PowerSource::AC    ? TriNo
                                                                 : TriUnknown;
  }

  s.fullScreen = TriUnknown;
  if (CVisibleProcessMonitor::canDetectFullScreen()) {
    try {
      std::vector<CVisibleProcessMonitor::CEntry> const visible = CVisibleProcessMonitor::snapshot();
      s.fullScreen = CVisibleProcessMonitor::anyFullScreen(visible) ? TriYes : TriNo;
    } catch (CError const&) {
      // unknown, as promised: a sample never fails
    }
  }
  m_last = s;
  return s;
}

}  // namespace qo

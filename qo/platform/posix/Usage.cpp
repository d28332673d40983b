#include "qo/platform/Usage.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <dirent.h>
#include <sys/stat.h>
#include <time.h>

namespace qo::platform {

namespace {

bool readSmallFile(char const* path, std::string& out) {
  out.clear();
  FILE* file = std::fopen(path, "re");
  if (!file) return false;
  char buffer[4096];
  std::size_t got;
  while ((got = std::fread(buffer, 1, sizeof buffer, file)) > 0) out.append(buffer, got);
  std::fclose(file);
  return true;
}

// A whole disk worth counting: listed in /sys/block (partitions are not),
// and not a loop device or a RAM disk, whose traffic is that of files or
// memory, not of a disk.
bool isRealDisk(char const* name) {
  if (!std::strncmp(name, "loop", 4) || !std::strncmp(name, "ram", 3) || !std::strncmp(name, "zram", 4))
    return false;
  struct stat st;
  return ::stat((std::string("/sys/block/") + name).c_str(), &st) == 0;
}

}  // namespace

SysError usageCpuTimes(CpuTimes& out) {
  out = CpuTimes();
  std::string text;
  if (!readSmallFile("/proc/stat", text)) return lastSysError("fopen");
  // "cpu  user nice system idle iowait irq softirq steal guest guest_nice";
  // guest time is already part of user time.
  unsigned long long v[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  if (text.compare(0, 4, "cpu ") != 0 ||
      std::sscanf(text.c_str() + 4, "%llu %llu %llu %llu %llu %llu %llu %llu", &v[0], &v[1], &v[2], &v[3], &v[4],
                  &v[5], &v[6], &v[7]) < 4)
    return sysErrorOf(EPROTO, "fopen");
  out.total = v[0] + v[1] + v[2] + v[3] + v[4] + v[5] + v[6] + v[7];
  out.busy = out.total - v[3] - v[4];
  return SysError{};
}

SysError usageDiskCounters(DiskCounters& out) {
  out = DiskCounters();
  std::string text;
  if (!readSmallFile("/proc/diskstats", text)) return lastSysError("fopen");
  std::size_t pos = 0;
  while (pos < text.size()) {
    std::size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    std::string const line = text.substr(pos, end - pos);
    pos = end + 1;
    // major minor name reads rmerged rsectors rms writes wmerged wsectors wms
    // inflight io_ticks ...
    unsigned major = 0, minor = 0;
    char name[64];
    unsigned long long f[10];
    if (std::sscanf(line.c_str(), "%u %u %63s %llu %llu %llu %llu %llu %llu %llu %llu %llu %llu", &major, &minor,
                    name, &f[0], &f[1], &f[2], &f[3], &f[4], &f[5], &f[6], &f[7], &f[8], &f[9]) != 13)
      continue;
    if (!isRealDisk(name)) continue;
    out.busyMillis.push_back(f[9]);
    out.operations += f[0] + f[4];
  }
  return SysError{};
}

SysError usageIdleMillis(std::int64_t& idleMillis, bool& known) {
  idleMillis = 0;
  known = false;
  struct timespec now;
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) return lastSysError("clock_gettime");
  long long latest = -1;  // milliseconds since the epoch
  auto consider = [&latest](std::string const& path) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISCHR(st.st_mode)) return;
    long long const at = static_cast<long long>(st.st_atim.tv_sec) * 1000 + st.st_atim.tv_nsec / 1000000;
    if (at > latest) latest = at;
  };
  if (DIR* dir = ::opendir("/dev/pts")) {
    while (struct dirent* entry = ::readdir(dir)) {
      if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9') consider(std::string("/dev/pts/") + entry->d_name);
    }
    ::closedir(dir);
  }
  for (int i = 1; i <= 12; ++i) consider("/dev/tty" + std::to_string(i));
  if (latest < 0) return SysError{};
  long long const nowMillis = static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
  idleMillis = nowMillis > latest ? nowMillis - latest : 0;
  known = true;
  return SysError{};
}

std::int64_t usageNowMillis() {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

}  // namespace qo::platform

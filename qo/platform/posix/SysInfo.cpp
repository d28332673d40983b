#include "qo/platform/SysInfo.h"

#include "qo/platform/CodePage.h"

#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace qo::platform {

namespace {

// Kernel and release names are ASCII; anything else is passed through as
// Latin-1 rather than failing the whole description.
std::u16string widen(std::string const& text) {
  std::u16string out;
  out.reserve(text.size());
  for (unsigned char c : text) out.push_back(static_cast<char16_t>(c));
  return out;
}

std::u16string fromUTF8(std::string const& text) {
  std::u16string out;
  if (decodeCodePage(65001, text.data(), text.size(), out) != CodePageResult::Ok) out = widen(text);
  return out;
}

// PRETTY_NAME from os-release, unquoted; empty when there is none.
std::string distributionName() {
  for (char const* path : {"/etc/os-release", "/usr/lib/os-release"}) {
    FILE* file = std::fopen(path, "re");
    if (!file) continue;
    char line[512];
    std::string result;
    while (std::fgets(line, sizeof line, file)) {
      if (std::strncmp(line, "PRETTY_NAME=", 12) != 0) continue;
      std::string value(line + 12);
      while (!value.empty() && (value.back() == '\n' || value.back() == '\r')) value.pop_back();
      if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') && value.back() == value.front())
        value = value.substr(1, value.size() - 2);
      result = value;
      break;
    }
    std::fclose(file);
    if (!result.empty()) return result;
  }
  return std::string();
}

// Reads up to three leading decimal numbers separated by dots.
void parseRelease(char const* release, int (&parts)[3]) {
  char const* p = release;
  for (int& part : parts) {
    if (*p < '0' || *p > '9') return;
    long value = std::strtol(p, const_cast<char**>(&p), 10);
    part = static_cast<int>(value);
    if (*p != '.') return;
    ++p;
  }
}

}  // namespace

SysError getOsInfo(OsInfo& out) {
  out = OsInfo();
  struct utsname names;
  if (uname(&names) != 0) return lastSysError("uname");
  out.type = widen(names.sysname);
  int parts[3] = {0, 0, 0};
  parseRelease(names.release, parts);
  out.versionMajor = parts[0];
  out.versionMinor = parts[1];
  out.versionUpdate = parts[2];
  std::string machine = names.machine;
  out.is64Bit = machine.find("64") != std::string::npos || machine == "s390x";
  std::string description = distributionName();
  if (!description.empty()) description += "; ";
  description += std::string(names.sysname) + " " + names.release + " " + names.machine;
  out.description = fromUTF8(description);
  return SysError();
}

SysError getMemoryInfo(MemoryInfo& out) {
  out = MemoryInfo();
  long pageSize = sysconf(_SC_PAGESIZE);
  long pages = sysconf(_SC_PHYS_PAGES);
  if (pageSize <= 0 || pages <= 0) {
    SysError error = lastSysError("sysconf");
    if (!error) error = sysErrorOf(EINVAL, "sysconf");
    return error;
  }
  out.totalPhysical = static_cast<unsigned long long>(pages) * static_cast<unsigned long long>(pageSize);
#ifdef _SC_AVPHYS_PAGES
  long available = sysconf(_SC_AVPHYS_PAGES);
  if (available > 0) out.freePhysical = static_cast<unsigned long long>(available) * static_cast<unsigned long long>(pageSize);
#endif
  return SysError();
}

int getCoreCount() {
  long count = sysconf(_SC_NPROCESSORS_ONLN);
  return count >= 1 ? static_cast<int>(count) : 1;
}

SysError getMachineName(std::u16string& out) {
  out.clear();
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return lastSysError("gethostname");
  out = fromUTF8(name);
  return SysError();
}

SysError getUptimeMillis(long long& out) {
  out = 0;
  struct timespec now = {};
#ifdef CLOCK_BOOTTIME
  if (clock_gettime(CLOCK_BOOTTIME, &now) != 0)
#endif
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return lastSysError("clock_gettime");
  out = static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
  return SysError();
}

SysError getProcessElevated(bool& out) {
  out = geteuid() == 0;
  return SysError();
}

SysError getLongPathsEnabled(bool& out) {
  out = false;
  return SysError();
}

SysError getUacEnabled(bool& out) {
  out = false;
  return SysError();
}

bool hasWindowsFeatureSwitches() { return false; }

}  // namespace qo::platform

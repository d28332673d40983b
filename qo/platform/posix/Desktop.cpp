#include "qo/platform/Desktop.h"

#include "qo/platform/CodePage.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <dirent.h>

namespace qo::platform {

SysError desktopNotificationState(int& state) {
  // No desktop-neutral way to ask; the caller reports "unknown".
  state = 0;
  return SysError{};
}

bool desktopKnowsFullScreen() { return false; }

SysError desktopVisibleProcesses(std::vector<VisibleProcessEntry>& out) {
  out.clear();
  DIR* dir = ::opendir("/proc");
  if (!dir) return lastSysError("opendir");
  while (struct dirent* entry = ::readdir(dir)) {
    char* end = nullptr;
    unsigned long long const id = std::strtoull(entry->d_name, &end, 10);
    if (id == 0 || *end != '\0') continue;
    std::string const path = std::string("/proc/") + entry->d_name + "/stat";
    FILE* file = std::fopen(path.c_str(), "re");
    if (!file) continue;  // ended meanwhile
    char buffer[1024];
    std::size_t const got = std::fread(buffer, 1, sizeof buffer - 1, file);
    std::fclose(file);
    buffer[got] = '\0';
    // "pid (comm) state ppid pgrp session tty_nr ..."; comm may hold ')'.
    std::string const text(buffer, got);
    std::size_t const open = text.find('('), close = text.rfind(')');
    if (open == std::string::npos || close == std::string::npos || close < open) continue;
    char state = 0;
    long long ppid = 0, pgrp = 0, session = 0, tty = 0;
    if (std::sscanf(text.c_str() + close + 1, " %c %lld %lld %lld %lld", &state, &ppid, &pgrp, &session, &tty) != 5)
      continue;
    if (tty == 0 || state == 'Z') continue;
    VisibleProcessEntry e;
    e.id = id;
    std::string const comm = text.substr(open + 1, close - open - 1);
    if (decodeCodePage(65001, comm.data(), comm.size(), e.name) != CodePageResult::Ok)
      for (unsigned char c : comm) e.name.push_back(c);  // as Latin-1
    out.push_back(std::move(e));
  }
  ::closedir(dir);
  std::sort(out.begin(), out.end(),
            [](VisibleProcessEntry const& a, VisibleProcessEntry const& b) { return a.id < b.id; });
  return SysError{};
}

}  // namespace qo::platform

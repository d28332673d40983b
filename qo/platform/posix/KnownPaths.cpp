#include "qo/platform/KnownPaths.h"

#include "qo/platform/CodePage.h"

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace qo::platform {

namespace {

std::u16string fromUTF8(std::string const& bytes) {
  std::u16string out;
  if (decodeCodePage(65001, bytes.data(), bytes.size(), out) != CodePageResult::Ok) {
    out.clear();
    for (unsigned char c : bytes) out.push_back(static_cast<char16_t>(c));
  }
  return out;
}

std::string stripSlashes(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

// The variable's value when it is an absolute path, else "".
std::string absoluteEnv(char const* name) {
  char const* value = std::getenv(name);
  return value && value[0] == '/' ? stripSlashes(value) : std::string();
}

SysError home(std::string& out) {
  out = absoluteEnv("HOME");
  if (!out.empty()) return SysError();
  std::string buffer(4096, '\0');
  struct passwd pw;
  struct passwd* result = nullptr;
  int rc = getpwuid_r(geteuid(), &pw, buffer.data(), buffer.size(), &result);
  if (rc != 0) return sysErrorOf(static_cast<std::uint32_t>(rc), "getpwuid_r");
  if (!result || !pw.pw_dir || pw.pw_dir[0] != '/') return sysErrorOf(ENOENT, "getpwuid_r");
  out = stripSlashes(pw.pw_dir);
  return SysError();
}

}  // namespace

SysError knownPath(KnownFolder which, std::u16string& out) {
  out.clear();
  std::string path;
  switch (which) {
    case KnownFolder::Temp:
      path = absoluteEnv("TMPDIR");
      if (path.empty()) path = "/tmp";
      break;
    case KnownFolder::Home:
      if (SysError e = home(path)) return e;
      break;
    case KnownFolder::UserAppData:
      path = absoluteEnv("XDG_DATA_HOME");
      if (path.empty()) {
        if (SysError e = home(path)) return e;
        path = stripSlashes(path) + "/.local/share";
        if (path.compare(0, 2, "//") == 0) path.erase(0, 1);
      }
      break;
    case KnownFolder::MachineAppData: {
      char const* dirs = std::getenv("XDG_DATA_DIRS");
      std::string list = dirs ? dirs : "";
      std::size_t start = 0;
      while (path.empty() && start <= list.size()) {
        std::size_t end = list.find(':', start);
        if (end == std::string::npos) end = list.size();
        std::string entry = list.substr(start, end - start);
        if (!entry.empty() && entry[0] == '/') path = stripSlashes(entry);
        start = end + 1;
      }
      if (path.empty()) path = "/usr/local/share";
      break;
    }
    case KnownFolder::ProgramFiles:
      path = "/opt";
      break;
  }
  out = fromUTF8(path);
  return SysError();
}

}  // namespace qo::platform

#include "qo/platform/Accounts.h"

#include "qo/platform/CodePage.h"

#include <grp.h>
#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <set>

namespace qo::platform {

namespace {

// getpwent/getgrent walk one process-wide cursor.
pthread_mutex_t g_enumMutex = PTHREAD_MUTEX_INITIALIZER;

std::u16string fromUTF8(char const* text) {
  std::string bytes(text ? text : "");
  std::u16string out;
  if (decodeCodePage(65001, bytes.data(), bytes.size(), out) != CodePageResult::Ok) {
    out.clear();
    for (unsigned char c : bytes) out.push_back(static_cast<char16_t>(c));
  }
  return out;
}

bool toUTF8(std::u16string const& text, std::string& out) {
  return encodeCodePage(65001, text.data(), text.size(), out) == CodePageResult::Ok;
}

std::u16string decimal(unsigned long long value) {
  std::u16string digits;
  do {
    digits.insert(digits.begin(), static_cast<char16_t>(u'0' + value % 10));
    value /= 10;
  } while (value != 0);
  return digits;
}

void fill(struct passwd const& pw, AccountInfo& out) {
  out = AccountInfo();
  out.name = fromUTF8(pw.pw_name);
  out.id = decimal(pw.pw_uid);
  out.home = fromUTF8(pw.pw_dir);
  out.isAdmin = pw.pw_uid == 0;
}

SysError error(int code, char const* api) { return sysErrorOf(static_cast<std::uint32_t>(code), api); }

// Runs getpw*_r with a growing buffer. "Not found" is rc 0 with no result;
// some libcs report it as ENOENT/ESRCH/EBADF/EPERM instead.
template <class Lookup>
SysError lookupUser(char const* api, Lookup lookup, bool& found, AccountInfo& out) {
  found = false;
  std::string buffer(1024, '\0');
  for (;;) {
    struct passwd pw;
    struct passwd* result = nullptr;
    int rc = lookup(&pw, buffer.data(), buffer.size(), &result);
    if (rc == ERANGE && buffer.size() < (1u << 20)) {
      buffer.resize(buffer.size() * 4);
      continue;
    }
    if (rc == EINTR) continue;
    if (rc == 0 && result) {
      found = true;
      fill(pw, out);
      return SysError();
    }
    if (rc == 0 || rc == ENOENT || rc == ESRCH || rc == EBADF || rc == EPERM) return SysError();
    return error(rc, api);
  }
}

}  // namespace

SysError accountCurrent(AccountInfo& out) {
  uid_t uid = geteuid();
  bool found = false;
  SysError e = lookupUser(
      "getpwuid_r", [uid](struct passwd* pw, char* buf, std::size_t size, struct passwd** result) {
        return getpwuid_r(uid, pw, buf, size, result);
      },
      found, out);
  if (e) return e;
  if (!found) {
    // A uid without a passwd entry (containers): still a user.
    out = AccountInfo();
    out.id = decimal(uid);
    out.isAdmin = uid == 0;
    if (char const* home = std::getenv("HOME")) out.home = fromUTF8(home);
  }
  return SysError();
}

SysError accountByName(std::u16string const& name, bool& found, AccountInfo& out) {
  found = false;
  std::string narrow;
  if (name.empty() || !toUTF8(name, narrow)) return SysError();
  return lookupUser(
      "getpwnam_r", [&narrow](struct passwd* pw, char* buf, std::size_t size, struct passwd** result) {
        return getpwnam_r(narrow.c_str(), pw, buf, size, result);
      },
      found, out);
}

SysError accountById(std::u16string const& id, bool& found, AccountInfo& out) {
  found = false;
  if (id.empty() || id.size() > 10) return SysError();
  unsigned long long value = 0;
  for (char16_t c : id) {
    if (c < u'0' || c > u'9') return SysError();
    value = value * 10 + static_cast<unsigned>(c - u'0');
  }
  if (value > 0xFFFFFFFEull) return SysError();
  uid_t uid = static_cast<uid_t>(value);
  return lookupUser(
      "getpwuid_r", [uid](struct passwd* pw, char* buf, std::size_t size, struct passwd** result) {
        return getpwuid_r(uid, pw, buf, size, result);
      },
      found, out);
}

SysError accountListUsers(std::vector<AccountInfo>& out) {
  out.clear();
  pthread_mutex_lock(&g_enumMutex);
  setpwent();
  SysError e;
  for (;;) {
    errno = 0;
    struct passwd* pw = getpwent();
    if (!pw) {
      if (errno != 0 && errno != ENOENT) e = error(errno, "getpwent");
      break;
    }
    AccountInfo info;
    fill(*pw, info);
    out.push_back(info);
  }
  endpwent();
  pthread_mutex_unlock(&g_enumMutex);
  return e;
}

SysError accountListGroups(std::vector<std::u16string>& out) {
  out.clear();
  pthread_mutex_lock(&g_enumMutex);
  setgrent();
  SysError e;
  for (;;) {
    errno = 0;
    struct group* gr = getgrent();
    if (!gr) {
      if (errno != 0 && errno != ENOENT) e = error(errno, "getgrent");
      break;
    }
    out.push_back(fromUTF8(gr->gr_name));
  }
  endgrent();
  pthread_mutex_unlock(&g_enumMutex);
  return e;
}

SysError accountGroupsOfUser(std::u16string const& name, bool& found, std::vector<std::u16string>& out) {
  out.clear();
  found = false;
  std::string narrow;
  if (name.empty() || !toUTF8(name, narrow)) return SysError();
  std::string buffer(1024, '\0');
  struct passwd pw;
  struct passwd* result = nullptr;
  int rc;
  while ((rc = getpwnam_r(narrow.c_str(), &pw, buffer.data(), buffer.size(), &result)) == ERANGE &&
         buffer.size() < (1u << 20))
    buffer.resize(buffer.size() * 4);
  if (rc != 0 || !result) return SysError();
  found = true;
  gid_t primary = pw.pw_gid;
  std::vector<gid_t> groups(32);
  for (;;) {
    int count = static_cast<int>(groups.size());
    if (getgrouplist(narrow.c_str(), primary, groups.data(), &count) >= 0) {
      groups.resize(static_cast<std::size_t>(count));
      break;
    }
    if (count <= static_cast<int>(groups.size())) count = static_cast<int>(groups.size()) * 2;
    groups.resize(static_cast<std::size_t>(count));
  }
  std::set<gid_t> seen;
  for (gid_t gid : groups) {
    if (!seen.insert(gid).second) continue;
    std::string groupBuffer(1024, '\0');
    struct group gr;
    struct group* groupResult = nullptr;
    while ((rc = getgrgid_r(gid, &gr, groupBuffer.data(), groupBuffer.size(), &groupResult)) == ERANGE &&
           groupBuffer.size() < (1u << 20))
      groupBuffer.resize(groupBuffer.size() * 4);
    out.push_back(rc == 0 && groupResult ? fromUTF8(gr.gr_name) : decimal(gid));
  }
  return SysError();
}

}  // namespace qo::platform

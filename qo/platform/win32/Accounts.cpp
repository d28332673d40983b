#include "qo/platform/Accounts.h"

#include <windows.h>

#include <lm.h>
#include <sddl.h>
#include <userenv.h>

#include <vector>

namespace qo::platform {

namespace {

std::u16string u16(wchar_t const* text) {
  return text ? std::u16string(reinterpret_cast<char16_t const*>(text)) : std::u16string();
}

wchar_t const* wide(std::u16string const& text) { return reinterpret_cast<wchar_t const*>(text.c_str()); }

SysError status(DWORD code) { return SysError{static_cast<std::uint32_t>(code), sysErrorText(code)}; }

bool isNotFound(DWORD code) {
  return code == ERROR_NONE_MAPPED || code == ERROR_INVALID_SID || code == ERROR_INVALID_PARAMETER;
}

SysError sidText(PSID sid, std::u16string& out) {
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(sid, &text)) return lastSysError();
  out = u16(text);
  LocalFree(text);
  return SysError();
}

// Name and domain of a SID; found false when no account has it.
SysError nameOfSid(PSID sid, bool& found, AccountInfo& out) {
  found = false;
  wchar_t name[256];
  wchar_t domain[256];
  DWORD nameSize = 256;
  DWORD domainSize = 256;
  SID_NAME_USE use;
  if (!LookupAccountSidW(nullptr, sid, name, &nameSize, domain, &domainSize, &use)) {
    DWORD code = GetLastError();
    return isNotFound(code) ? SysError() : status(code);
  }
  found = true;
  out.name = u16(name);
  out.domain = u16(domain);
  return sidText(sid, out.id);
}

// The (localised) name of the built-in Administrators group.
std::u16string administratorsName() {
  SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
  PSID admins = nullptr;
  if (!AllocateAndInitializeSid(&nt, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                &admins))
    return std::u16string();
  AccountInfo info;
  bool found = false;
  nameOfSid(admins, found, info);
  FreeSid(admins);
  return found ? info.name : std::u16string();
}

// Whether the named user is in Administrators, directly or through a group.
bool isAdministrator(std::u16string const& name) {
  std::u16string admins = administratorsName();
  if (admins.empty()) return false;
  LOCALGROUP_USERS_INFO_0* groups = nullptr;
  DWORD read = 0;
  DWORD total = 0;
  if (NetUserGetLocalGroups(nullptr, wide(name), 0, LG_INCLUDE_INDIRECT, reinterpret_cast<BYTE**>(&groups),
                            MAX_PREFERRED_LENGTH, &read, &total) != NERR_Success)
    return false;
  bool result = false;
  for (DWORD i = 0; i < read; ++i)
    if (CompareStringOrdinal(groups[i].lgrui0_name, -1, wide(admins), -1, TRUE) == CSTR_EQUAL) result = true;
  if (groups) NetApiBufferFree(groups);
  return result;
}

}  // namespace

SysError accountCurrent(AccountInfo& out) {
  out = AccountInfo();
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return lastSysError();
  SysError e;
  DWORD size = 0;
  GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  std::vector<unsigned char> buffer(size ? size : 1);
  if (!GetTokenInformation(token, TokenUser, buffer.data(), size, &size)) {
    e = lastSysError();
  } else {
    PSID sid = reinterpret_cast<TOKEN_USER*>(buffer.data())->User.Sid;
    bool found = false;
    e = nameOfSid(sid, found, out);
    if (!e && !found) e = sidText(sid, out.id);
    wchar_t home[MAX_PATH + 1];
    DWORD homeSize = MAX_PATH + 1;
    if (!e && GetUserProfileDirectoryW(token, home, &homeSize)) out.home = u16(home);
    SID_IDENTIFIER_AUTHORITY nt = SECURITY_NT_AUTHORITY;
    PSID admins = nullptr;
    if (!e && AllocateAndInitializeSid(&nt, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0, 0, 0, 0,
                                       &admins)) {
      BOOL member = FALSE;
      // CheckTokenMembership needs an impersonation token; null means "the
      // caller's", which for a process without impersonation is this one.
      if (CheckTokenMembership(nullptr, admins, &member)) out.isAdmin = member != FALSE;
      FreeSid(admins);
    }
  }
  CloseHandle(token);
  return e;
}

SysError accountByName(std::u16string const& name, bool& found, AccountInfo& out) {
  found = false;
  out = AccountInfo();
  if (name.empty()) return SysError();
  DWORD sidSize = 0;
  DWORD domainSize = 0;
  SID_NAME_USE use;
  LookupAccountNameW(nullptr, wide(name), nullptr, &sidSize, nullptr, &domainSize, &use);
  DWORD code = GetLastError();
  if (code != ERROR_INSUFFICIENT_BUFFER) return isNotFound(code) ? SysError() : status(code);
  std::vector<unsigned char> sid(sidSize);
  std::vector<wchar_t> domain(domainSize + 1);
  if (!LookupAccountNameW(nullptr, wide(name), sid.data(), &sidSize, domain.data(), &domainSize, &use)) {
    code = GetLastError();
    return isNotFound(code) ? SysError() : status(code);
  }
  if (use != SidTypeUser) return SysError();
  SysError e = nameOfSid(sid.data(), found, out);
  if (found) out.isAdmin = isAdministrator(out.name);
  return e;
}

SysError accountById(std::u16string const& id, bool& found, AccountInfo& out) {
  found = false;
  out = AccountInfo();
  PSID sid = nullptr;
  if (id.empty() || !ConvertStringSidToSidW(wide(id), &sid)) return SysError();
  SysError e = nameOfSid(sid, found, out);
  LocalFree(sid);
  if (found) out.isAdmin = isAdministrator(out.name);
  return e;
}

SysError accountListUsers(std::vector<AccountInfo>& out) {
  out.clear();
  DWORD resume = 0;
  NET_API_STATUS rc;
  do {
    USER_INFO_0* users = nullptr;
    DWORD read = 0;
    DWORD total = 0;
    rc = NetUserEnum(nullptr, 0, FILTER_NORMAL_ACCOUNT, reinterpret_cast<BYTE**>(&users), MAX_PREFERRED_LENGTH, &read,
                     &total, &resume);
    if (rc != NERR_Success && rc != ERROR_MORE_DATA) return status(rc);
    for (DWORD i = 0; i < read; ++i) {
      AccountInfo info;
      bool found = false;
      std::u16string name = u16(users[i].usri0_name);
      accountByName(name, found, info);
      if (!found) info.name = name;
      out.push_back(info);
    }
    if (users) NetApiBufferFree(users);
  } while (rc == ERROR_MORE_DATA);
  return SysError();
}

SysError accountListGroups(std::vector<std::u16string>& out) {
  out.clear();
  DWORD_PTR resume = 0;
  NET_API_STATUS rc;
  do {
    LOCALGROUP_INFO_0* groups = nullptr;
    DWORD read = 0;
    DWORD total = 0;
    rc = NetLocalGroupEnum(nullptr, 0, reinterpret_cast<BYTE**>(&groups), MAX_PREFERRED_LENGTH, &read, &total, &resume);
    if (rc != NERR_Success && rc != ERROR_MORE_DATA) return status(rc);
    for (DWORD i = 0; i < read; ++i) out.push_back(u16(groups[i].lgrpi0_name));
    if (groups) NetApiBufferFree(groups);
  } while (rc == ERROR_MORE_DATA);
  return SysError();
}

SysError accountGroupsOfUser(std::u16string const& name, bool& found, std::vector<std::u16string>& out) {
  out.clear();
  AccountInfo info;
  SysError e = accountByName(name, found, info);
  if (e || !found) return e;
  LOCALGROUP_USERS_INFO_0* groups = nullptr;
  DWORD read = 0;
  DWORD total = 0;
  NET_API_STATUS rc = NetUserGetLocalGroups(nullptr, wide(name), 0, LG_INCLUDE_INDIRECT,
                                            reinterpret_cast<BYTE**>(&groups), MAX_PREFERRED_LENGTH, &read, &total);
  if (rc != NERR_Success) return status(rc);
  for (DWORD i = 0; i < read; ++i) out.push_back(u16(groups[i].lgrui0_name));
  if (groups) NetApiBufferFree(groups);
  return SysError();
}

}  // namespace qo::platform

// qo/platform/Accounts.h - user and group accounts of the local machine
// (internal, OS-free).
//
// Windows: OpenProcessToken, GetTokenInformation (TokenUser),
// ConvertSidToStringSidW, LookupAccountSidW, LookupAccountNameW,
// ConvertStringSidToSidW, CheckTokenMembership (Administrators),
// GetUserProfileDirectoryW, NetUserEnum, NetLocalGroupEnum,
// NetUserGetLocalGroups; the id is the SID text ("S-1-5-21-...").
// POSIX: getpwuid_r, getpwnam_r, getgrouplist, getgrgid_r, and the account
// lists through getpwent/getgrent (not reentrant: one caller at a time,
// under a lock of this service); the id is the decimal uid.
//
//   AccountInfo me;
//   if (SysError e = accountCurrent(me)) ...;
//   bool found = false;
//   accountByName(u"root", found, me);
//
// Never throws; thread-safe.
#ifndef QO_PLATFORM_ACCOUNTS_H
#define QO_PLATFORM_ACCOUNTS_H

#include <string>
#include <vector>

#include "qo/platform/LastError.h"

namespace qo::platform {

struct AccountInfo {
  std::u16string name;    ///< Log-on name (Windows "DOMAIN\user" is split: name only).
  std::u16string domain;  ///< Windows: the account's domain or machine; POSIX: "".
  std::u16string id;      ///< SID text or decimal uid.
  std::u16string home;    ///< Home folder; "" when the OS does not say.
  bool isAdmin = false;   ///< Member of Administrators / uid 0.
};

/// The user this process runs as.
SysError accountCurrent(AccountInfo& out);
/// The user of that name; found false (and no error) when there is none.
SysError accountByName(std::u16string const& name, bool& found, AccountInfo& out);
/// The user of that id (SID text or decimal uid); found false when there
/// is none or the text is no id.
SysError accountById(std::u16string const& id, bool& found, AccountInfo& out);
/// The local users (Windows: name, domain and id; home and isAdmin left
/// empty/false).
SysError accountListUsers(std::vector<AccountInfo>& out);
/// The names of the local groups.
SysError accountListGroups(std::vector<std::u16string>& out);
/// The names of the local groups the user belongs to (POSIX including the
/// primary group); found false when there is no such user.
SysError accountGroupsOfUser(std::u16string const& name, bool& found, std::vector<std::u16string>& out);

}  // namespace qo::platform

#endif  // QO_PLATFORM_ACCOUNTS_H

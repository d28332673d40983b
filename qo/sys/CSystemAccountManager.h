// qo/sys/CSystemAccountManager.h - the local machine's user and group
// accounts.
//
// One process-wide instance (get()). A user is described by a CUserInfo
// value: log-on name, the domain or machine it belongs to (Windows; "" on
// POSIX), its id (the SID text "S-1-5-21-..." on Windows, the decimal uid on
// POSIX), its home folder ("" where the OS does not tell it) and whether it
// is an administrator (Windows a member of Administrators; POSIX uid 0).
// Looking up a user who does not exist throws CError "User account not
// found." with the property "user" (or "userId"); a failing OS call throws
// CSystemError with the call under "api".
//
//   CSystemAccountManager::CUserInfo me = CSystemAccountManager::get()->getCurrentUser();
//   auto groups = CSystemAccountManager::get()->getGroupsOfUser(me.name);
//
// Thread-safe.
#ifndef QO_SYS_CSYSTEMACCOUNTMANAGER_H
#define QO_SYS_CSYSTEMACCOUNTMANAGER_H

#include <vector>

#include "qo/core/CBase.h"
#include "qo/core/Export.h"
#include "qo/core/P.h"
#include "qo/core/String.h"

namespace qo {

/// User and group accounts. Thread-safe.
class QO_API CSystemAccountManager : public CBase {
public:
  /// One user account (a plain value).
  struct CUserInfo {
    String name;
    String domain;
    String id;
    String home;
    bool isAdmin = false;
  };

  /// The process-wide instance, created on first use. Thread-safe.
  static P<CSystemAccountManager> const& get();

  CSystemAccountManager();
  ~CSystemAccountManager() override;

  /// The user the process runs as (POSIX: the effective uid; a uid without
  /// an account entry gives an empty name and $HOME). Throws CSystemError
  /// (api "GetTokenInformation"). Thread-safe.
  CUserInfo getCurrentUser() const;
  /// The user of that log-on name. Throws CError "User account not found."
  /// ("user" = name) when there is none, CSystemError (api
  /// "LookupAccountNameW") when the OS fails. Thread-safe.
  CUserInfo getUserByName(String const& name) const;
  /// The user of that id (SID text or decimal uid). Throws CError "User
  /// account not found." ("userId" = id) when there is none or the text is
  /// no id, CSystemError (api "LookupAccountSidW") when the OS fails.
  /// Thread-safe.
  CUserInfo getUserById(String const& id) const;
  /// Whether a user of that name exists. Throws CSystemError. Thread-safe.
  bool userExists(String const& name) const;
  /// The local users in the OS's order (Windows: no home folder). Throws
  /// CSystemError (api "NetUserEnum"). Thread-safe.
  std::vector<CUserInfo> listUsers() const;
  /// The names of the local groups. Throws CSystemError (api
  /// "NetLocalGroupEnum"). Thread-safe.
  std::vector<String> listGroups() const;
  /// The names of the local groups the user belongs to (POSIX with the
  /// primary group first). Throws as getUserByName() (api
  /// "NetUserGetLocalGroups"). Thread-safe.
  std::vector<String> getGroupsOfUser(String const& name) const;
};

}  // namespace qo

#endif  // QO_SYS_CSYSTEMACCOUNTMANAGER_H

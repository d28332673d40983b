#include "qo/sys/CSystemAccountManager.h"

#include "qo/core/CError.h"
#include "qo/core/CProps.h"
#include "qo/core/CSafeGlobalSlot.h"
#include "qo/core/CSystemError.h"
#include "qo/platform/Accounts.h"

namespace qo {

namespace {

void check(platform::SysError const& e, char16_t const* function, char16_t const* api) {
  if (e) throw CSystemError(u"Error reading the user accounts.", function, api, e);
}

[[noreturn]] void throwNotFound(char16_t const* key, String const& value) {
  throw CError(u"User account not found.", String(), -1, CProps().add(key, value), nullptr);
}

CSystemAccountManager::CUserInfo convert(platform::AccountInfo const& info) {
  CSystemAccountManager::CUserInfo user;
  user.name = String(info.name);
  user.domain = String(info.domain);
  user.id = String(info.id);
  user.home = String(info.home);
  user.isAdmin = info.isAdmin;
  return user;
}

}  // namespace

P<CSystemAccountManager> const& CSystemAccountManager::get() {
  static CSafeGlobalSlot g_pInstanceSlot;
  return TSafeGlobal<CSystemAccountManager>::get(g_pInstanceSlot);
}

CSystemAccountManager::CSystemAccountManager() = default;
CSystemAccountManager::~CSystemAccountManager() = default;

CSystemAccountManager::CUserInfo CSystemAccountManager::getCurrentUser() const {
  platform::AccountInfo info;
  check(platform::accountCurrent(info), u"CSystemAccountManager::getCurrentUser", u"GetTokenInformation");
  return convert(info);
}

CSystemAccountManager::CUserInfo CSystemAccountManager::getUserByName(String const& name) const {
  platform::AccountInfo info;
  bool found = false;
  check(platform::accountByName(name.str(), found, info), u"CSystemAccountManager::getUserByName",
        u"LookupAccountNameW");
  if (!found) throwNotFound(u"user", name);
  return convert(info);
}

CSystemAccountManager::CUserInfo CSystemAccountManager::getUserById(String const& id) const {
  platform::AccountInfo info;
  bool found = false;
  check(platform::accountById(id.str(), found, info), u"CSystemAccountManager::getUserById", u"LookupAccountSidW");
  if (!found) throwNotFound(u"userId", id);
  return convert(info);
}

bool CSystemAccountManager::userExists(String const& name) const {
  platform::AccountInfo info;
  bool found = false;
  check(platform::accountByName(name.str(), found, info), u"CSystemAccountManager::userExists", u"LookupAccountNameW");
  return found;
}

std::vector<CSystemAccountManager::CUserInfo> CSystemAccountManager::listUsers() const {
  std::vector<platform::AccountInfo> infos;
  check(platform::accountListUsers(infos), u"CSystemAccountManager::listUsers", u"NetUserEnum");
  std::vector<CUserInfo> users;
  users.reserve(infos.size());
  for (auto const& info : infos) users.push_back(convert(info));
  return users;
}

std::vector<String> CSystemAccountManager::listGroups() const {
  std::vector<std::u16string> names;
  check(platform::accountListGroups(names), u"CSystemAccountManager::listGroups", u"NetLocalGroupEnum");
  return std::vector<String>(names.begin(), names.end());
}

std::vector<String> CSystemAccountManager::getGroupsOfUser(String const& name) const {
  std::vector<std::u16string> names;
  bool found = false;
  check(platform::accountGroupsOfUser(name.str(), found, names), u"CSystemAccountManager::getGroupsOfUser",
        u"NetUserGetLocalGroups");
  if (!found) throwNotFound(u"user", name);
  return std::vector<String>(names.begin(), names.end());
}

}  // namespace qo

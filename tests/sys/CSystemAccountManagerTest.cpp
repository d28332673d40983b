// CSystemAccountManager against the system's own tools (id, getent) on
// Linux and against the token and account calls on Windows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "qo/core/CError.h"
#include "qo/sys/CSystemAccountManager.h"

#ifdef _WIN32
#include <windows.h>
#endif

namespace qo {
namespace {

using Accounts = CSystemAccountManager;

#ifndef _WIN32
// The output of a shell command, without its final newline.
std::string run(std::string const& command) {
  std::string out;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    std::size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    pclose(pipe);
  }
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

std::set<std::string> words(std::string const& text, char separator) {
  std::set<std::string> result;
  std::stringstream stream(text);
  std::string word;
  while (std::getline(stream, word, separator))
    if (!word.empty()) result.insert(word);
  return result;
}

std::set<std::string> firstFields(std::string const& table) {
  std::set<std::string> result;
  for (auto const& line : words(table, '\n')) result.insert(line.substr(0, line.find(':')));
  return result;
}
#endif

TEST(CSystemAccountManager, CurrentUserRoundTripsThroughLookups) {
  Accounts::CUserInfo me = Accounts::get()->getCurrentUser();
  ASSERT_FALSE(me.id.isEmpty());
#ifdef _WIN32
  EXPECT_TRUE(me.id.StartsWith(u"S-1-"));
  wchar_t name[256];
  DWORD size = 256;
  ASSERT_TRUE(GetUserNameW(name, &size));
  EXPECT_EQ(me.name.CmpNoCase(String(name)), 0);
#else
  EXPECT_EQ(me.id.toUTF8(), run("id -u"));
  EXPECT_EQ(me.name.toUTF8(), run("id -un"));
  EXPECT_EQ(me.isAdmin, me.id == u"0");
  std::string entry = run("getent passwd " + run("id -u"));
  EXPECT_TRUE(entry.find(":" + me.home.toUTF8() + ":") != std::string::npos) << entry;
#endif
  Accounts::CUserInfo byName = Accounts::get()->getUserByName(me.name);
  EXPECT_EQ(byName.id, me.id);
  EXPECT_EQ(byName.isAdmin, me.isAdmin);
  Accounts::CUserInfo byId = Accounts::get()->getUserById(me.id);
  EXPECT_EQ(byId.name, me.name);
  EXPECT_TRUE(Accounts::get()->userExists(me.name));
}

TEST(CSystemAccountManager, UnknownUsersGiveAClearError) {
  struct Probe {
    char const* what;
    bool byId;
    String value;
  } const probes[] = {
      {"name", false, u"qo-no-such-user-4711"},
      {"empty name", false, u""},
      {"id that is no id", true, u"not-an-id"},
      {"unused id", true, u"S-1-5-21-1-2-3-987654"},
  };
  for (Probe const& p : probes) {
    SCOPED_TRACE(p.what);
    String id = p.value;
#ifndef _WIN32
    if (p.byId && id.StartsWith(u"S-1-")) id = u"3999999999";
#endif
    try {
      if (p.byId)
        Accounts::get()->getUserById(id);
      else
        Accounts::get()->getUserByName(id);
      ADD_FAILURE() << "no error";
    } catch (CError const& e) {
      EXPECT_EQ(e.getMessage(), u"User account not found.");
      EXPECT_EQ(e.getParams().lookup(p.byId ? u"userId" : u"user"), id);
    }
  }
  EXPECT_FALSE(Accounts::get()->userExists(u"qo-no-such-user-4711"));
  EXPECT_THROW(Accounts::get()->getGroupsOfUser(u"qo-no-such-user-4711"), CError);
}

TEST(CSystemAccountManager, ListsMatchTheAccountDatabase) {
  std::vector<Accounts::CUserInfo> users;
  std::vector<String> groups;
  try {
    users = Accounts::get()->listUsers();
    groups = Accounts::get()->listGroups();
  } catch (CError const& e) {
#ifdef _WIN32
    GTEST_SKIP() << "this Windows (Wine) cannot enumerate accounts: " << e.what();
#else
    throw;
#endif
  }
  Accounts::CUserInfo me = Accounts::get()->getCurrentUser();
  std::vector<String> mine = Accounts::get()->getGroupsOfUser(me.name);
  std::set<std::string> userNames, groupNames, myGroups;
  for (auto const& u : users) userNames.insert(u.name.toUTF8());
  for (auto const& g : groups) groupNames.insert(g.toUTF8());
  for (auto const& g : mine) myGroups.insert(g.toUTF8());
  EXPECT_EQ(userNames.count(me.name.toUTF8()), 1u);
#ifndef _WIN32
  EXPECT_EQ(userNames, firstFields(run("getent passwd")));
  EXPECT_EQ(groupNames, firstFields(run("getent group")));
  EXPECT_EQ(myGroups, words(run("id -Gn"), ' '));
  for (auto const& u : users)
    if (u.name == u"root") EXPECT_TRUE(u.isAdmin);
#else
  EXPECT_FALSE(myGroups.empty());
  if (groupNames.empty()) GTEST_SKIP() << "Wine's NetLocalGroupEnum lists no groups at all";
  for (auto const& g : myGroups) EXPECT_EQ(groupNames.count(g), 1u) << g;
#endif
}

}  // namespace
}  // namespace qo

// CKnownPaths: the XDG rules on Linux (driven through the environment) and
// the shell's folders on Windows.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "qo/sys/CKnownPaths.h"

namespace qo {
namespace {

TEST(CKnownPaths, FoldersAreFolderURIs) {
  for (auto which : {CKnownPaths::Temp, CKnownPaths::Home, CKnownPaths::UserAppData, CKnownPaths::MachineAppData,
                     CKnownPaths::ProgramFiles}) {
    SCOPED_TRACE(CKnownPaths::getFolderName(which).toUTF8());
    CURI uri = CKnownPaths::getFolder(which);
    EXPECT_EQ(uri.getScheme(), u"file");
    EXPECT_TRUE(uri.getPath().EndsWith(u"/"));
    String path = CKnownPaths::getFolderPath(which);
    EXPECT_FALSE(path.isEmpty());
#ifdef _WIN32
    // The shell's folders exist; their URI names the same folder.
    EXPECT_TRUE(std::filesystem::is_directory(std::filesystem::path(path.toWString())));
    EXPECT_EQ(uri.getPath().CmpNoCase(u"/" + path.Replace(u"\\", u"/") + u"/"), 0);
#else
    EXPECT_EQ(uri.getPath(), path == u"/" ? path : path + u"/");
#endif
  }
}

#ifndef _WIN32
// Sets or clears variables for one case and puts them back afterwards.
class Environment {
public:
  void set(char const* name, char const* value) {
    char const* old = std::getenv(name);
    m_saved.push_back({name, old ? old : "", old != nullptr});
    if (value)
      setenv(name, value, 1);
    else
      unsetenv(name);
  }
  ~Environment() {
    for (auto it = m_saved.rbegin(); it != m_saved.rend(); ++it) {
      if (it->had)
        setenv(it->name, it->value.c_str(), 1);
      else
        unsetenv(it->name);
    }
  }

private:
  struct Saved {
    char const* name;
    std::string value;
    bool had;
  };
  std::vector<Saved> m_saved;
};

TEST(CKnownPaths, LinuxFollowsTheXdgRules) {
  struct Case {
    char const* what;
    CKnownPaths::Folder folder;
    char const* home;
    char const* variable;
    char const* value;
    char const* uri;
  } const cases[] = {
      {"home", CKnownPaths::Home, "/h/me", nullptr, nullptr, "file:///h/me/"},
      {"home with slash", CKnownPaths::Home, "/h/me/", nullptr, nullptr, "file:///h/me/"},
      {"data default", CKnownPaths::UserAppData, "/h/me", "XDG_DATA_HOME", nullptr, "file:///h/me/.local/share/"},
      {"data set", CKnownPaths::UserAppData, "/h/me", "XDG_DATA_HOME", "/d/x y", "file:///d/x%20y/"},
      {"data relative ignored", CKnownPaths::UserAppData, "/h/me", "XDG_DATA_HOME", "rel",
       "file:///h/me/.local/share/"},
      {"machine default", CKnownPaths::MachineAppData, "/h", "XDG_DATA_DIRS", nullptr, "file:///usr/local/share/"},
      {"machine first absolute", CKnownPaths::MachineAppData, "/h", "XDG_DATA_DIRS", "rel::/m/a/:/m/b", "file:///m/a/"},
      {"temp default", CKnownPaths::Temp, "/h", "TMPDIR", nullptr, "file:///tmp/"},
      {"temp set", CKnownPaths::Temp, "/h", "TMPDIR", "/var/t/", "file:///var/t/"},
      {"programs", CKnownPaths::ProgramFiles, "/h", nullptr, nullptr, "file:///opt/"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    Environment env;
    env.set("HOME", c.home);
    if (c.variable) env.set(c.variable, c.value);
    EXPECT_EQ(CKnownPaths::getFolder(c.folder).toString(false).toUTF8(), c.uri);
  }
}
#endif

}  // namespace
}  // namespace qo

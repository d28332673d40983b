// CSystemSettings: typed round trips through the file store (every system)
// and the registry (Windows), exact file bytes, clear errors, and two real
// processes changing one file at once without losing a change.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "TempFolder.h"
#include "qo/core/CError.h"
#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CLockFileError.h"
#include "qo/fs/CLockFile.h"
#include "qo/fs/LocalFile.h"
#include "qo/sys/CSystemSettings.h"
#include "qo/util/CCachedEnvVars.h"

#ifdef _WIN32
#include <windows.h>
#include <process.h>
#else
#include <sys/wait.h>
#include <unistd.h>
extern char** environ;
#endif

namespace qo {
namespace {

using S = CSystemSettings;

char const kRootVar[] = "QO_TEST_SETTINGS_ROOT";
char const kWriterVar[] = "QO_TEST_SETTINGS_WRITER";
char const kWriterFilter[] = "--gtest_filter=CSystemSettings.WriterForTheParentProcess";
#ifdef _WIN32
constexpr int kWritesPerProcess = 12;  // a change costs tens of ms under Wine
#else
constexpr int kWritesPerProcess = 25;
#endif

std::string readEnv(char const* name) {
  char const* value = std::getenv(name);
  return value ? value : "";
}

// One value of each type, with the characters the file format escapes.
struct Case {
  char const* name;
  S::ValueType type;
  String text;
  std::int64_t number;
  std::vector<unsigned char> bytes;
  std::vector<String> list;
};

std::vector<Case> cases() {
  std::vector<unsigned char> all;
  for (int i = 0; i < 256; ++i) all.push_back(static_cast<unsigned char>(i));
  String tricky = u"a=b,[c]#\\ \t\r\n\x7f end \u00e9\u20ac\U0001F600";
  return {
      {"empty string", S::TypeString, u"", 0, {}, {}},
      {"tricky string", S::TypeString, tricky, 0, {}, {}},
      {"int32 min", S::TypeInt32, u"", INT32_MIN, {}, {}},
      {"int32 max", S::TypeInt32, u"", INT32_MAX, {}, {}},
      {"int64 min", S::TypeInt64, u"", INT64_MIN, {}, {}},
      {"int64 max", S::TypeInt64, u"", INT64_MAX, {}, {}},
      {"binary empty", S::TypeBinary, u"", 0, {}, {}},
      {"binary all bytes", S::TypeBinary, u"", 0, all, {}},
      {"list empty", S::TypeStringList, u"", 0, {}, {}},
      {"list tricky", S::TypeStringList, u"", 0, {}, {u"one", u"t,w,o", tricky, u"\\"}},
  };
}

void set(S& s, S::Scope scope, String const& key, Case const& c) {
  String name = String::fromUTF8(c.name);
  switch (c.type) {
    case S::TypeString:
      s.setString(scope, key, name, c.text);
      break;
    case S::TypeInt32:
      s.setInt32(scope, key, name, static_cast<std::int32_t>(c.number));
      break;
    case S::TypeInt64:
      s.setInt64(scope, key, name, c.number);
      break;
    case S::TypeBinary:
      s.setBinary(scope, key, name, c.bytes);
      break;
    case S::TypeStringList:
      s.setStringList(scope, key, name, c.list);
      break;
    case S::TypeOther:
      break;
  }
}

void expectValue(S const& s, S::Scope scope, String const& key, Case const& c) {
  String name = String::fromUTF8(c.name);
  ASSERT_EQ(s.getValueType(scope, key, name), c.type);
  switch (c.type) {
    case S::TypeString:
      EXPECT_EQ(s.getString(scope, key, name), c.text);
      break;
    case S::TypeInt32:
      EXPECT_EQ(s.getInt32(scope, key, name), c.number);
      break;
    case S::TypeInt64:
      EXPECT_EQ(s.getInt64(scope, key, name), c.number);
      break;
    case S::TypeBinary:
      EXPECT_EQ(s.getBinary(scope, key, name), c.bytes);
      break;
    case S::TypeStringList:
      EXPECT_EQ(s.getStringList(scope, key, name), c.list);
      break;
    case S::TypeOther:
      break;
  }
}

// Every case written by one store and read back by a fresh one, in both
// scopes; then deleting the key removes them all.
void roundTrip(String const& root, String const& key) {
  P<S> writer = newP<S>();
  writer->setRootFolder(root);
  P<S> reader = newP<S>();
  reader->setRootFolder(root);
  for (S::Scope scope : {S::User, S::Machine}) {
    for (Case const& c : cases()) set(*writer, scope, key, c);
    for (Case const& c : cases()) {
      SCOPED_TRACE(c.name);
      expectValue(*reader, scope, key, c);
    }
    EXPECT_EQ(reader->listValueNames(scope, key).size(), cases().size());
    EXPECT_TRUE(writer->deleteKey(scope, key));
    EXPECT_FALSE(reader->hasValue(scope, key, u"int32 max"));
    EXPECT_FALSE(writer->deleteKey(scope, key));
  }
}

String scratchKey() {
  return u"Software/qo-tests/settings-" +
         String::fromUTF8(std::to_string(std::filesystem::file_time_type::clock::now().time_since_epoch().count()));
}

TEST(CSystemSettings, FileStoreRoundTripsEveryType) {
  test::TempFolder folder("qo-settings");
  roundTrip(folder.path(), u"Software/Acme/Backup");
}

TEST(CSystemSettings, RegistryRoundTripsEveryType) {
  if (!S::get()->usesRegistry()) GTEST_SKIP() << "this system keeps settings in files (tested above)";
  // Only the user scope: writing HKEY_LOCAL_MACHINE needs an elevated process.
  String key = scratchKey();
  S& s = *S::get();
  for (Case const& c : cases()) set(s, S::User, key, c);
  for (Case const& c : cases()) {
    SCOPED_TRACE(c.name);
    expectValue(s, S::User, key, c);
  }
  EXPECT_TRUE(s.deleteValue(S::User, key, u"INT32 MAX"));  // names ignore case
  EXPECT_FALSE(s.hasValue(S::User, key, u"int32 max"));
  EXPECT_TRUE(s.deleteKey(S::User, key));
  EXPECT_FALSE(s.deleteKey(S::User, key));
}

TEST(CSystemSettings, FileHasTheDocumentedFormatAndLocation) {
  test::TempFolder folder("qo-settings");
  S s;
  s.setRootFolder(folder.path());
  String sep = localPathsAreWindowsPaths() ? u"\\" : u"/";
  EXPECT_EQ(s.getFilePath(S::User), folder.path() + sep + u"user" + sep + u"qo-settings.conf");
  EXPECT_EQ(s.getFilePath(S::Machine), folder.path() + sep + u"machine" + sep + u"qo-settings.conf");
  s.setString(S::Machine, u"A\\B", u"s", u"x=y");
  s.setInt32(S::Machine, u"a/b", u"n", -7);  // same key: parts ignore case and separators
  s.setStringList(S::Machine, u"a/b/c", u"l", {u"p,q", u"r"});
  s.setBinary(S::Machine, u"a/b/c", u"b", {0x00, 0xAB});
  EXPECT_EQ(readLocalFile(s.getFilePath(S::Machine)),
            "# Settings kept by the qo library; one [key] per section, name=type:value.\n"
            "[A/B]\ns=string:x\\x3dy\nn=int32:-7\n"
            "[a/b/c]\nl=stringList:p\\x2cq,r\nb=binary:00ab\n");
  EXPECT_FALSE(localFileExists(s.getFilePath(S::Machine) + u".tmp"));
  EXPECT_FALSE(localFileExists(s.getFilePath(S::User)));
}

#ifndef _WIN32
TEST(CSystemSettings, LinuxFilesFollowTheXdgConfigRule) {
  struct Case {
    char const* config;
    char const* user;
  } const cases[] = {
      {"/x/conf", "/x/conf/qo-settings.conf"},
      {nullptr, "/h/me/.config/qo-settings.conf"},
      {"relative", "/h/me/.config/qo-settings.conf"},  // not absolute: ignored
  };
  std::string oldHome = readEnv("HOME"), oldConfig = readEnv("XDG_CONFIG_HOME");
  bool hadConfig = std::getenv("XDG_CONFIG_HOME") != nullptr;
  setenv("HOME", "/h/me", 1);
  for (Case const& c : cases) {
    SCOPED_TRACE(c.config ? c.config : "(unset)");
    if (c.config)
      setenv("XDG_CONFIG_HOME", c.config, 1);
    else
      unsetenv("XDG_CONFIG_HOME");
    CCachedEnvVars::get()->refresh();  // the settings read the environment through the snapshot
    S s;
    EXPECT_EQ(s.getFilePath(S::User).toUTF8(), c.user);
    EXPECT_EQ(s.getFilePath(S::Machine), u"/etc/qo-settings.conf");
  }
  setenv("HOME", oldHome.c_str(), 1);
  if (hadConfig)
    setenv("XDG_CONFIG_HOME", oldConfig.c_str(), 1);
  else
    unsetenv("XDG_CONFIG_HOME");
  CCachedEnvVars::get()->refresh();
}
#endif

TEST(CSystemSettings, MissingValuesAndWrongTypesGiveClearErrors) {
  test::TempFolder folder("qo-settings");
  S s;
  s.setRootFolder(folder.path());
  s.setInt32(S::User, u"k", u"n", 1);
  struct Probe {
    char const* what;
    String key, name, message, expected, actual;
  } const probes[] = {
      {"no file, no key", u"none", u"n", u"Setting not found.", u"", u""},
      {"key without the value", u"k", u"m", u"Setting not found.", u"", u""},
      {"int32 read as string", u"k", u"n", u"Setting has another type.", u"string", u"int32"},
  };
  for (Probe const& p : probes) {
    SCOPED_TRACE(p.what);
    try {
      s.getString(S::User, p.key, p.name);
      ADD_FAILURE() << "no error";
    } catch (CError const& e) {
      EXPECT_EQ(e.getMessage(), p.message);
      EXPECT_EQ(e.getParams().lookup(u"scope"), u"user");
      EXPECT_EQ(e.getParams().lookup(u"key"), p.key);
      EXPECT_EQ(e.getParams().lookup(u"name"), p.name);
      EXPECT_EQ(e.getParams().lookup(u"expected"), p.expected);
      EXPECT_EQ(e.getParams().lookup(u"actual"), p.actual);
    }
  }
  EXPECT_FALSE(s.deleteValue(S::User, u"k", u"m"));
  EXPECT_TRUE(s.deleteValue(S::User, u"K", u"N"));
  EXPECT_THROW(s.listValueNames(S::User, u"none"), CError);
}

TEST(CSystemSettings, BadArgumentsAreRefused) {
  test::TempFolder folder("qo-settings");
  S s;
  s.setRootFolder(folder.path());
  for (String key : {String(u""), String(u"a//b"), String(u"/a"), String(u"a/")}) {
    SCOPED_TRACE(key.toUTF8());
    EXPECT_THROW(s.setInt32(S::User, key, u"n", 1), CInvalidArgError);
    EXPECT_THROW(s.getInt32(S::User, key, u"n"), CInvalidArgError);
  }
  EXPECT_THROW(s.setString(S::User, u"k", u"n", String(u"a\0b", 3)), CInvalidArgError);
  EXPECT_THROW(s.setStringList(S::User, u"k", u"n", {u"a", u""}), CInvalidArgError);
  EXPECT_FALSE(localFileExists(s.getFilePath(S::User)));
}

TEST(CSystemSettings, GarbledFileIsReportedAsCorrupted) {
  test::TempFolder folder("qo-settings");
  S s;
  s.setRootFolder(folder.path());
  s.setInt32(S::User, u"k", u"n", 1);
  for (char const* text : {"n=int32:1\n", "[k]\nn=int32:x\n", "[k]\nn=int33:1\n", "[k]\nn=int32:99999999999\n",
                           "[k]\nn=string:\\q\n", "[k]\nn=binary:abc\n", "[k\n"}) {
    SCOPED_TRACE(text);
    writeLocalFile(s.getFilePath(S::User), text, std::char_traits<char>::length(text));
    EXPECT_THROW(s.getInt32(S::User, u"k", u"n"), CFileCorruptedError);
  }
}

// Threads with stores of their own meet at the lock file, as processes do.
TEST(CSystemSettings, ThreadsWithTheirOwnStoresLoseNoChange) {
  test::TempFolder folder("qo-settings");
  constexpr int kThreads = 4, kWrites = 8;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&folder, t] {
      S s;
      s.setRootFolder(folder.path());
      for (int i = 0; i < kWrites; ++i)
        s.setInt64(S::User, u"shared", String::fromUTF8(std::to_string(t * 100 + i)), i);
    });
  for (auto& thread : threads) thread.join();
  S s;
  s.setRootFolder(folder.path());
  EXPECT_EQ(s.listValueNames(S::User, u"shared").size(), static_cast<std::size_t>(kThreads * kWrites));
  for (int t = 0; t < kThreads; ++t)
    for (int i = 0; i < kWrites; ++i)
      EXPECT_EQ(s.getInt64(S::User, u"shared", String::fromUTF8(std::to_string(t * 100 + i))), i);
}

TEST(CSystemSettings, HeldLockFileStopsAChangeAfterTheTimeout) {
  test::TempFolder folder("qo-settings");
  S s;
  s.setRootFolder(folder.path());
  s.setInt32(S::User, u"k", u"n", 1);
  s.setLockTimeout(0);
  {
    CLockFile other(s.getFilePath(S::User) + u".lock");
    try {
      s.setInt32(S::User, u"k", u"n", 2);
      ADD_FAILURE() << "no error";
    } catch (CLockFileError const& e) {
      EXPECT_EQ(e.getParams().lookup(u"lockConflict"), u"true");
    }
    EXPECT_EQ(s.getInt32(S::User, u"k", u"n"), 1);  // reading needs no lock
  }
  s.setInt32(S::User, u"k", u"n", 3);
  EXPECT_EQ(s.getInt32(S::User, u"k", u"n"), 3);
}

// The child's side of the two-writer test. Skipped in an ordinary run.
TEST(CSystemSettings, WriterForTheParentProcess) {
  std::string root = readEnv(kRootVar), writer = readEnv(kWriterVar);
  if (root.empty() || writer.empty()) GTEST_SKIP() << "runs only as a child of TwoProcessesLoseNoChange";
  S s;
  s.setRootFolder(String::fromUTF8(root));
  for (int i = 0; i < kWritesPerProcess; ++i)
    s.setInt32(S::User, u"shared", String::fromUTF8("w" + writer + "-" + std::to_string(i)), i);
}

#ifdef _WIN32
intptr_t startWriter(std::string const& root, char const* id) {
  std::wstring exe(32768, L'\0');
  exe.resize(GetModuleFileNameW(nullptr, exe.data(), static_cast<DWORD>(exe.size())));
  String const wideRoot = String::fromUTF8(root), wideId = String::fromUTF8(id);
  _wputenv_s(L"QO_TEST_SETTINGS_ROOT", reinterpret_cast<wchar_t const*>(wideRoot.c_str()));
  _wputenv_s(L"QO_TEST_SETTINGS_WRITER", reinterpret_cast<wchar_t const*>(wideId.c_str()));
  std::wstring const quoted = L"\"" + exe + L"\"";
  std::wstring const filter(kWriterFilter, kWriterFilter + sizeof kWriterFilter - 1);
  intptr_t handle = _wspawnl(_P_NOWAIT, exe.c_str(), quoted.c_str(), filter.c_str(), nullptr);
  _wputenv_s(L"QO_TEST_SETTINGS_ROOT", L"");
  _wputenv_s(L"QO_TEST_SETTINGS_WRITER", L"");
  return handle;
}
int finishWriter(intptr_t handle) {
  int status = -1;
  if (handle == -1 || _cwait(&status, handle, 0) == -1) return -1;
  return status;
}
#else
intptr_t startWriter(std::string const& root, char const* id) {
  // Built before fork(): the child of a threaded process may only exec.
  std::string exe = std::filesystem::read_symlink("/proc/self/exe").string();
  std::string filter = kWriterFilter;
  std::vector<std::string> env;
  for (char** e = environ; *e; ++e) env.emplace_back(*e);
  env.push_back(std::string(kRootVar) + "=" + root);
  env.push_back(std::string(kWriterVar) + "=" + id);
  std::vector<char*> argv{exe.data(), filter.data(), nullptr};
  std::vector<char*> envp;
  for (std::string& e : env) envp.push_back(e.data());
  envp.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    execve(exe.c_str(), argv.data(), envp.data());
    _exit(127);
  }
  return pid;
}
int finishWriter(intptr_t pid) {
  if (pid <= 0) return -1;
  int status = 0;
  while (waitpid(static_cast<pid_t>(pid), &status, 0) < 0)
    if (errno != EINTR) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
#endif

TEST(CSystemSettings, TwoProcessesLoseNoChange) {
  test::TempFolder folder("qo-settings");
  std::string root = folder.folder().u8string();
  intptr_t a = startWriter(root, "a");
  intptr_t b = startWriter(root, "b");
  ASSERT_EQ(finishWriter(a), 0);
  ASSERT_EQ(finishWriter(b), 0);
  S s;
  s.setRootFolder(folder.path());
  std::vector<String> names = s.listValueNames(S::User, u"shared");
  EXPECT_EQ(names.size(), 2u * kWritesPerProcess);
  for (char const* id : {"a", "b"})
    for (int i = 0; i < kWritesPerProcess; ++i)
      EXPECT_EQ(s.getInt32(S::User, u"shared", String::fromUTF8(std::string("w") + id + "-" + std::to_string(i))), i);
}

}  // namespace
}  // namespace qo

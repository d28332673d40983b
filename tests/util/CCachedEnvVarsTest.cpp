#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "qo/util/CCachedEnvVars.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <cstdlib>
#endif

using namespace qo;

namespace {

// Sets (or, with null, removes) a variable of the real process environment.
void setEnv(char16_t const* name, char16_t const* value) {
#ifdef _WIN32
  ASSERT_TRUE(SetEnvironmentVariableW(reinterpret_cast<wchar_t const*>(name), reinterpret_cast<wchar_t const*>(value)));
#else
  std::string n = String(name).toUTF8();
  if (value != nullptr) {
    ASSERT_EQ(setenv(n.c_str(), String(value).toUTF8().c_str(), 1), 0);
  } else {
    ASSERT_EQ(unsetenv(n.c_str()), 0);
  }
#endif
}

}  // namespace

TEST(CCachedEnvVars, SnapshotChangesOnlyOnRefresh) {
  auto vars = newP<CCachedEnvVars>();
  struct Case {
    char16_t const* name;
    char16_t const* value;
  } const cases[] = {{u"QO_ENV_TEST_PLAIN", u"value"},
                     {u"QO_ENV_TEST_EQUALS", u"a=b=c"},
                     {u"QO_ENV_TEST_EMPTYISH", u" "},
                     {u"QO_ENV_TEST_WIDE", u"K\u00f6ln \u6771\u4eac \U0001F600"}};
  for (auto const& c : cases) setEnv(c.name, c.value);
  for (auto const& c : cases) EXPECT_EQ(vars->getValue(c.name, u"-"), String(u"-"));
  vars->refresh();
  for (auto const& c : cases) {
    SCOPED_TRACE(String(c.name).toUTF8());
    EXPECT_EQ(vars->getValue(c.name), String(c.value));
    String lowered;
    // Windows names ignore case; POSIX names do not.
    EXPECT_EQ(vars->lookup(String(c.name).Lower(), lowered), CCachedEnvVars::namesIgnoreCase());
    setEnv(c.name, nullptr);
  }
  auto all = vars->getAll();
  EXPECT_NE(std::find(all.begin(), all.end(), std::make_pair(String(u"QO_ENV_TEST_PLAIN"), String(u"value"))),
            all.end());
  vars->refresh();
  String gone;
  for (auto const& c : cases) EXPECT_FALSE(vars->lookup(c.name, gone));
}

TEST(CCachedEnvVars, LookupsAndRefreshRunOnManyThreads) {
  setEnv(u"QO_ENV_TEST_SHARED", u"shared");
  P<CCachedEnvVars> const& vars = CCachedEnvVars::get();
  vars->refresh();
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&vars, &wrong, t] {
      for (int i = 0; i < 300; ++i) {
        if (t == 0 && i % 10 == 0) vars->refresh();
        if (vars->getValue(u"QO_ENV_TEST_SHARED") != String(u"shared")) ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(vars.get(), CCachedEnvVars::get().get());
  setEnv(u"QO_ENV_TEST_SHARED", nullptr);
}

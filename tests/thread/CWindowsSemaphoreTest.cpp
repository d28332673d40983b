// CWindowsSemaphore: the maximum, named create/open sharing one count, and
// the error texts of each failing operation.
#include "qo/thread/CWindowsSemaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <vector>

#include "qo/core/CSystemError.h"
#include "qo/thread/CThread.h"

namespace qo {
namespace {

// A name no other run uses at the same time.
String uniqueName(char16_t const* tag) {
  static std::atomic<int> counter{0};
  return String(u"qo.test.") + tag + u"." + toString(static_cast<long long>(CThread::getCurrentID())) + u"." +
         toString(++counter);
}

TEST(CWindowsSemaphoreTest, FailuresNameTheirPlace) {
  CWindowsSemaphore full(String(), 1, 2);
  EXPECT_TRUE(full.wasCreated());
  full.incValue();
  String const missing = uniqueName(u"missing");
  struct Case {
    std::function<void()> call;
    char16_t const *function, *windowsApi, *posixApi, *message;
  };
  char16_t const* const kCreate = u"CWindowsSemaphore::constructCreateOrOpen";
  std::vector<Case> const cases = {
      {[&] { full.incValue(); }, u"CWindowsSemaphore::incValue", u"ReleaseSemaphore", u"sem_post",
       u"Error releasing semaphore."},
      {[] { CWindowsSemaphore s(String(), 0, 0); }, kCreate, u"CreateSemaphore", u"sem_init",
       u"Error creating semaphore."},
      {[] { CWindowsSemaphore s(String(), 3, 2); }, kCreate, u"CreateSemaphore", u"sem_init",
       u"Error creating semaphore."},
      {[] { CWindowsSemaphore s(String(), 0, 0x80000000u); }, kCreate, u"CreateSemaphore", u"sem_init",
       u"Error creating semaphore."},
      {[&] { CWindowsSemaphore s(missing); }, u"CWindowsSemaphore::constructOpen", u"OpenSemaphore", u"sem_open",
       u"Error opening semaphore."},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.message).toUTF8());
    try {
      c.call();
      ADD_FAILURE() << "no error";
    } catch (CSystemError const& e) {
      EXPECT_EQ(e.getParams().lookup(u"function"), String(c.function));
      // The call that failed on this system, never another system's name.
      bool const posix = CSystemError::getPlatformDomain() == String(u"POSIX");
      EXPECT_EQ(e.getParams().lookup(u"api"), String(posix ? c.posixApi : c.windowsApi));
      EXPECT_EQ(e.getErrorCodeDomain(), CSystemError::getPlatformDomain());
      EXPECT_NE(e.getErrorCode(), 0);
      EXPECT_EQ(e.getMessage(), String(c.message));
      if (String(c.windowsApi) == String(u"OpenSemaphore")) EXPECT_EQ(e.getParams().lookup(u"name"), missing);
    }
  }
  EXPECT_TRUE(full.decValue(0));  // the refused release left the count at the maximum
  EXPECT_TRUE(full.decValue(0));
  EXPECT_FALSE(full.decValue(0));
}

TEST(CWindowsSemaphoreTest, NamedSemaphoreIsSharedByCreatorAndOpeners) {
  String name = uniqueName(u"shared");
  {
    CWindowsSemaphore creator(name, 0, 5);
    EXPECT_TRUE(creator.wasCreated());
    EXPECT_EQ(creator.getName(), name);
    CWindowsSemaphore opener(name);
    CWindowsSemaphore second(name, 3, 5);  // exists: opened, values unchanged
    EXPECT_FALSE(second.wasCreated());
    EXPECT_FALSE(creator.decValue(0));
    opener.incValue();
    second.incValue();
    EXPECT_TRUE(creator.decValue(0));
    EXPECT_TRUE(opener.decValue(20));
    EXPECT_FALSE(second.decValue(0));
  }
  CWindowsSemaphore::removeName(name);
}

}  // namespace
}  // namespace qo

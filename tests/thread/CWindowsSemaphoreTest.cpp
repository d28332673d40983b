// CWindowsSemaphore: the maximum, named create/open sharing one count, and
// the error texts of each failing operation.
#include "qo/thread/CWindowsSemaphore.h"

#include <gtest/gtest.h>

#include <atomic>

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

void expectPlace(CSystemError const& e, char16_t const* function, char16_t const* api) {
  EXPECT_EQ(e.getParams().lookup(u"function"), String(function));
  EXPECT_EQ(e.getParams().lookup(u"api"), String(api));
  EXPECT_EQ(e.getErrorCodeDomain(), CSystemError::getPlatformDomain());
  EXPECT_NE(e.getErrorCode(), 0);
}

TEST(CWindowsSemaphoreTest, ReleaseBeyondTheMaximumIsRefused) {
  CWindowsSemaphore semaphore(String(), 1, 2);
  EXPECT_TRUE(semaphore.wasCreated());
  semaphore.incValue();
  try {
    semaphore.incValue();
    FAIL() << "no error";
  } catch (CSystemError const& e) {
    expectPlace(e, u"CWindowsSemaphore::incValue", u"ReleaseSemaphore");
    EXPECT_EQ(e.getMessage(), String(u"Error releasing semaphore."));
  }
  EXPECT_TRUE(semaphore.decValue(0));
  EXPECT_TRUE(semaphore.decValue(0));
  EXPECT_FALSE(semaphore.decValue(0));
}

TEST(CWindowsSemaphoreTest, BadLimitsAreRefusedByTheCreator) {
  struct Case {
    unsigned initial, max;
  };
  for (Case c : {Case{0, 0}, Case{3, 2}, Case{0, 0x80000000u}}) {
    SCOPED_TRACE(testing::Message() << c.initial << "/" << c.max);
    try {
      CWindowsSemaphore semaphore(String(), c.initial, c.max);
      FAIL() << "no error";
    } catch (CSystemError const& e) {
      expectPlace(e, u"CWindowsSemaphore::constructCreateOrOpen", u"CreateSemaphore");
      EXPECT_EQ(e.getMessage(), String(u"Error creating semaphore."));
    }
  }
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

TEST(CWindowsSemaphoreTest, OpeningAMissingNameFails) {
  String name = uniqueName(u"missing");
  try {
    CWindowsSemaphore semaphore(name);
    FAIL() << "no error";
  } catch (CSystemError const& e) {
    expectPlace(e, u"CWindowsSemaphore::constructOpen", u"OpenSemaphore");
    EXPECT_EQ(e.getMessage(), String(u"Error opening semaphore."));
    EXPECT_EQ(e.getParams().lookup(u"name"), name);
  }
}

}  // namespace
}  // namespace qo

// CSemaphoreMutex: exclusion, release by another thread, one permit only.
#include "qo/thread/CSemaphoreMutex.h"

#include <gtest/gtest.h>

#include "qo/core/CSystemError.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

TEST(CSemaphoreMutexTest, AnotherThreadMayUnlockButAnOpenMutexIsNotUnlocked) {
  CSemaphoreMutex mutex;
  mutex.lock();
  test::joinAll(test::startThreads(1, [&](int) { mutex.unlock(); }));
  mutex.lock();  // would wait forever if the other thread's unlock had failed
  mutex.unlock();
  try {
    mutex.unlock();
    FAIL() << "no error";
  } catch (CSystemError const& e) {
    EXPECT_EQ(e.getParams().lookup(u"function"), String(u"CWindowsSemaphore::incValue"));
  }
  mutex.lock();  // still exactly one permit
  mutex.unlock();
}

TEST(CSemaphoreMutexTest, ManyThreadsCountExactly) {
  CSemaphoreMutex mutex;
  EXPECT_EQ(test::countUnderLock(mutex, 6, 2000, false), 6LL * 2000);
}

}  // namespace
}  // namespace qo

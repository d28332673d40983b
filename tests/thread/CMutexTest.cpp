// The recursive mutex, its scoped lock and unlock, and the global mutex.
#include "qo/thread/CMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "qo/thread/CMutexLock.h"
#include "qo/thread/CMutexUnlock.h"
#include "qo/thread/threadYield.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

bool tryLockFromOtherThread(CMutex& mutex) {
  bool taken = false;
  std::thread other([&] {
    taken = mutex.tryLock();
    if (taken) mutex.unlock();
  });
  other.join();
  return taken;
}

TEST(CMutexTest, RecursiveForItsOwnerAndReleasedOnThrow) {
  CMutex mutex;
  mutex.lock();
  try {
    CMutexLock again(mutex);
    EXPECT_FALSE(tryLockFromOtherThread(mutex));
    throw 1;
  } catch (int) {
  }
  EXPECT_FALSE(tryLockFromOtherThread(mutex));  // still held once
  mutex.unlock();
  EXPECT_TRUE(tryLockFromOtherThread(mutex));
}

TEST(CMutexTest, ManyThreadsCountExactly) {
  CMutex mutex;
  EXPECT_EQ(test::countUnderLock(mutex, 8, 20000, true), 8LL * 20000);
}

TEST(CMutexTest, UnlockScopeLetsAWaiterIn) {
  CMutex mutex;
  std::atomic<int> stage{0};
  CMutexLock lock(mutex);
  std::thread waiter([&] {
    stage = 1;
    CMutexLock inner(mutex);  // blocks until the holder opens the lock
    stage = 2;
  });
  while (stage != 1) threadYield(false);
  {
    CMutexUnlock open(mutex);
    while (stage != 2) threadYield(false);
  }
  waiter.join();  // held again here: nobody else can take it
  EXPECT_FALSE(tryLockFromOtherThread(mutex));
}

TEST(CMutexTest, GlobalMutexIsOneRecursiveLock) {
  CMutex& global = getGlobalMutex();
  EXPECT_EQ(&global, &getGlobalMutex());
  CMutexLock outer(global);
  CMutexLock inner(getGlobalMutex());
  EXPECT_FALSE(tryLockFromOtherThread(global));
}

}  // namespace
}  // namespace qo

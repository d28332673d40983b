// The recursive mutex, its scoped lock and unlock, and the global mutex.
#include "qo/thread/CMutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "qo/thread/CMutexLock.h"
#include "qo/thread/CMutexUnlock.h"
#include "qo/thread/threadYield.h"

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

TEST(CMutexTest, RecursiveForItsOwner) {
  CMutex mutex;
  mutex.lock();
  {
    CMutexLock again(mutex);
    EXPECT_FALSE(tryLockFromOtherThread(mutex));
  }
  EXPECT_FALSE(tryLockFromOtherThread(mutex));  // still held once
  mutex.unlock();
  EXPECT_TRUE(tryLockFromOtherThread(mutex));
}

TEST(CMutexTest, ScopedLockReleasesOnThrow) {
  CMutex mutex;
  try {
    CMutexLock lock(mutex);
    throw 1;
  } catch (int) {
  }
  EXPECT_TRUE(tryLockFromOtherThread(mutex));
}

TEST(CMutexTest, ManyThreadsCountExactly) {
  CMutex mutex;
  long long counter = 0;
  constexpr int kThreads = 8;
  constexpr int kIterations = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < kIterations; ++i) {
        CMutexLock lock(mutex);
        CMutexLock nested(mutex);
        long long seen = counter;
        counter = seen + 1;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(counter, static_cast<long long>(kThreads) * kIterations);
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
  // Held again here: the waiter has left, nobody else can take it.
  waiter.join();
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

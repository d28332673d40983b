// CSemaphoreMutex: exclusion, release by another thread, one permit only.
#include "qo/thread/CSemaphoreMutex.h"

#include <gtest/gtest.h>

#include <vector>

#include "qo/core/CSystemError.h"
#include "qo/thread/CMutexLock.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CFuncThread;

TEST(CSemaphoreMutexTest, AnotherThreadMayUnlock) {
  CSemaphoreMutex mutex;
  mutex.lock();
  auto other = newP<CFuncThread>([&](CFuncThread&) { mutex.unlock(); });
  other->start();
  other->join(true);
  mutex.lock();  // would wait forever if the other thread's unlock had failed
  mutex.unlock();
}

TEST(CSemaphoreMutexTest, UnlockingAnOpenMutexIsRefused) {
  CSemaphoreMutex mutex;
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
  long long counter = 0;
  constexpr int kThreads = 6;
  constexpr int kIterations = 2000;
  std::vector<P<CThread>> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.push_back(newP<CFuncThread>([&](CFuncThread&) {
      for (int i = 0; i < kIterations; ++i) {
        CMutexLock lock(mutex);
        long long seen = counter;
        counter = seen + 1;
      }
    }));
  }
  for (auto& t : threads) t->start();
  for (auto& t : threads) t->join(true);
  EXPECT_EQ(counter, static_cast<long long>(kThreads) * kIterations);
}

}  // namespace
}  // namespace qo

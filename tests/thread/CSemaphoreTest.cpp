// CSemaphore: permits, timeouts and many threads sharing a few permits.
#include "qo/thread/CSemaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "qo/core/CSystemError.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CFuncThread;

TEST(CSemaphoreTest, HandsOutTheInitialPermitsThenRefuses) {
  for (unsigned initial : {0u, 1u, 3u}) {
    SCOPED_TRACE(initial);
    CSemaphore semaphore(initial);
    for (unsigned i = 0; i < initial; ++i) EXPECT_TRUE(semaphore.decValue(0));
    EXPECT_FALSE(semaphore.decValue(0));
    semaphore.incValue();
    EXPECT_TRUE(semaphore.decValue(-1));
  }
}

TEST(CSemaphoreTest, TimedWaitWithoutPermitExpires) {
  CSemaphore semaphore(0);
  EXPECT_FALSE(semaphore.decValue(20));
}

TEST(CSemaphoreTest, InitialValueAboveTheMaximumIsRefused) {
  try {
    CSemaphore semaphore(0x80000000u);
    FAIL() << "no error";
  } catch (CSystemError const& e) {
    EXPECT_EQ(e.getParams().lookup(u"function"), String(u"CWindowsSemaphore::constructCreateOrOpen"));
    EXPECT_EQ(e.getParams().lookup(u"api"), String(u"CreateSemaphore"));
    EXPECT_EQ(e.getErrorCodeDomain(), CSystemError::getPlatformDomain());
  }
}

TEST(CSemaphoreTest, NeverMoreHoldersThanPermits) {
  constexpr int kPermits = 3;
  constexpr int kThreads = 8;
  constexpr int kIterations = 500;
  CSemaphore semaphore(kPermits);
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  std::atomic<long long> entries{0};
  std::vector<P<CThread>> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.push_back(newP<CFuncThread>([&](CFuncThread&) {
      for (int i = 0; i < kIterations; ++i) {
        ASSERT_TRUE(semaphore.decValue(-1));
        int now = ++inside;
        int seen = most.load();
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        ++entries;
        --inside;
        semaphore.incValue();
      }
    }));
  }
  for (auto& t : threads) t->start();
  for (auto& t : threads) t->join(true);
  EXPECT_LE(most.load(), kPermits);
  EXPECT_GE(most.load(), 1);
  EXPECT_EQ(entries.load(), static_cast<long long>(kThreads) * kIterations);
  for (int i = 0; i < kPermits; ++i) EXPECT_TRUE(semaphore.decValue(0));
  EXPECT_FALSE(semaphore.decValue(0));
}

TEST(CSemaphoreTest, ProducersReleaseConsumersExactlyOncePerPermit) {
  constexpr int kPairs = 4;
  constexpr int kItems = 1000;
  CSemaphore items(0);
  std::atomic<long long> consumed{0};
  std::vector<P<CThread>> threads;
  for (int t = 0; t < kPairs; ++t) {
    threads.push_back(newP<CFuncThread>([&](CFuncThread&) {
      for (int i = 0; i < kItems; ++i) items.incValue();
    }));
    threads.push_back(newP<CFuncThread>([&](CFuncThread&) {
      for (int i = 0; i < kItems; ++i) {
        ASSERT_TRUE(items.decValue(-1));
        ++consumed;
      }
    }));
  }
  for (auto& t : threads) t->start();
  for (auto& t : threads) t->join(true);
  EXPECT_EQ(consumed.load(), static_cast<long long>(kPairs) * kItems);
  EXPECT_FALSE(items.decValue(0));
}

}  // namespace
}  // namespace qo

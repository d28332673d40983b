// CSemaphore: permits, timeouts and many threads sharing a few permits.
#include "qo/thread/CSemaphore.h"

#include <gtest/gtest.h>

#include <atomic>

#include "qo/core/CSystemError.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

TEST(CSemaphoreTest, HandsOutTheInitialPermitsThenRefuses) {
  for (unsigned initial : {0u, 1u, 3u}) {
    SCOPED_TRACE(initial);
    CSemaphore semaphore(initial);
    for (unsigned i = 0; i < initial; ++i) EXPECT_TRUE(semaphore.decValue(0));
    EXPECT_FALSE(semaphore.decValue(0));
    if (initial == 0) EXPECT_FALSE(semaphore.decValue(20));  // a timed wait expires
    semaphore.incValue();
    EXPECT_TRUE(semaphore.decValue(-1));
  }
  try {
    CSemaphore semaphore(0x80000000u);
    FAIL() << "no error";
  } catch (CSystemError const& e) {
    EXPECT_EQ(e.getParams().lookup(u"function"), String(u"CWindowsSemaphore::constructCreateOrOpen"));
    bool const posix = CSystemError::getPlatformDomain() == String(u"POSIX");
    EXPECT_EQ(e.getParams().lookup(u"api"), String(posix ? u"sem_init" : u"CreateSemaphore"));
    EXPECT_EQ(e.getErrorCodeDomain(), CSystemError::getPlatformDomain());
  }
}

TEST(CSemaphoreTest, NeverMoreHoldersThanPermits) {
  constexpr int kPermits = 3, kThreads = 8, kIterations = 500;
  CSemaphore semaphore(kPermits);
  std::atomic<int> inside{0}, most{0};
  std::atomic<long long> entries{0};
  test::joinAll(test::startThreads(kThreads, [&](int) {
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
  EXPECT_LE(most.load(), kPermits);
  EXPECT_GE(most.load(), 1);
  EXPECT_EQ(entries.load(), static_cast<long long>(kThreads) * kIterations);
  for (int i = 0; i < kPermits; ++i) EXPECT_TRUE(semaphore.decValue(0));
  EXPECT_FALSE(semaphore.decValue(0));
}

TEST(CSemaphoreTest, ProducersReleaseConsumersExactlyOncePerPermit) {
  constexpr int kPairs = 4, kItems = 1000;
  CSemaphore items(0);
  std::atomic<long long> consumed{0};
  test::joinAll(test::startThreads(2 * kPairs, [&](int index) {
    for (int i = 0; i < kItems; ++i) {
      if (index % 2 == 0) {
        items.incValue();
      } else {
        ASSERT_TRUE(items.decValue(-1));
        ++consumed;
      }
    }
  }));
  EXPECT_EQ(consumed.load(), static_cast<long long>(kPairs) * kItems);
  EXPECT_FALSE(items.decValue(0));
}

}  // namespace
}  // namespace qo

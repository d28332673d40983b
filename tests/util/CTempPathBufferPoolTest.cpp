#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "qo/util/CTempPathBufferPool.h"

using namespace qo;

TEST(CTempPathBufferPool, LeasesReuseBuffersUpToTheLimit) {
  auto pool = newP<CTempPathBufferPool>();
  wchar_t* first = nullptr;
  {
    auto lease = pool->acquire();
    ASSERT_EQ(lease.getCapacity(), CTempPathBufferPool::kBufferChars);
    first = lease.getData();
    first[CTempPathBufferPool::kBufferChars - 1] = L'\0';
    EXPECT_EQ(pool->getIdleCount(), 0u);
  }
  EXPECT_EQ(pool->getIdleCount(), 1u);
  {
    auto again = pool->acquire();
    EXPECT_EQ(again.getData(), first);
    auto moved = std::move(again);
    EXPECT_EQ(again.getData(), nullptr);
    EXPECT_EQ(moved.getData(), first);
  }
  std::vector<CTempPathBufferPool::CLease> many;
  for (std::size_t i = 0; i < CTempPathBufferPool::kMaxPooled + 3; ++i) many.push_back(pool->acquire());
  many.back().getBuffer()->setSize(10);  // resized: freed, not pooled
  many.clear();
  EXPECT_EQ(pool->getIdleCount(), CTempPathBufferPool::kMaxPooled);
}

TEST(CTempPathBufferPool, ThreadsNeverShareALeasedBuffer) {
  P<CTempPathBufferPool> const& pool = CTempPathBufferPool::get();
  std::atomic<int> clashes{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&clashes, t] {
      for (int i = 0; i < 500; ++i) {
        auto lease = CTempPathBufferPool::get()->acquire();
        // Each thread stamps the buffer and checks nobody else did.
        wchar_t stamp = static_cast<wchar_t>(L'A' + t);
        for (int k = 0; k < 64; ++k) lease.getData()[k] = stamp;
        for (int k = 0; k < 64; ++k) clashes += lease.getData()[k] != stamp;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(clashes.load(), 0);
  EXPECT_LE(pool->getIdleCount(), 4u);
}

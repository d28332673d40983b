// Recycling through deleteThis: items come back and are reused, the pool's
// limit holds, and the pool's end (also with items still out) frees all.
#include "qo/core/TRecyclePool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace qo {
namespace {

std::atomic<int> g_live{0};
std::atomic<int> g_created{0};

class CItem : public TRecycleItem<> {
public:
  CItem() {
    ++g_live;
    ++g_created;
  }
  ~CItem() override { --g_live; }
  int value = 0;
  int recycled = 0;

protected:
  void onRecycle() noexcept override {
    value = 0;
    ++recycled;
  }
};

class CPool : public TRecyclePool<CItem> {
public:
  CPool(int maxFree, bool& died) : TRecyclePool<CItem>(maxFree), m_died(died) {}
  ~CPool() override { m_died = true; }

private:
  bool& m_died;
};

TEST(TRecyclePoolTest, ItemsComeBackAndAreReusedUpToTheLimit) {
  struct Case {
    int maxFree;
    int keptOfThree;
  };
  for (Case c : {Case{-1, 3}, Case{0, 0}, Case{2, 2}}) {
    SCOPED_TRACE(c.maxFree);
    g_created = 0;
    bool died = false;
    P<CPool> pool = newP<CPool>(c.maxFree, died);
    std::vector<P<CItem>> items{pool->get(), pool->get(), pool->get()};
    CItem* const last = items.back().get();
    last->value = 7;
    items.clear();
    EXPECT_EQ(pool->getFreeCount(), c.keptOfThree);
    EXPECT_EQ(g_live.load(), c.keptOfThree);
    P<CItem> again = pool->get();
    EXPECT_EQ(g_created.load(), c.keptOfThree > 0 ? 3 : 4);
    if (c.keptOfThree == 3) {
      EXPECT_EQ(again.get(), last);  // last in, first out
      EXPECT_EQ(again->value, 0);
      EXPECT_EQ(again->recycled, 1);
      EXPECT_EQ(again->getRefCountForDebugging(), 1);
    }
    again = nil;
    pool = nil;
    EXPECT_TRUE(died);
    EXPECT_EQ(g_live.load(), 0);
  }
}

TEST(TRecyclePoolTest, APoolDroppedWithItemsOutLivesUntilTheLastComesBack) {
  bool died = false;
  P<CPool> pool = newP<CPool>(-1, died);
  P<CItem> out1 = pool->get(), out2 = pool->get();
  (void)pool->get();  // came back at once: kept
  pool = nil;
  EXPECT_FALSE(died);
  EXPECT_EQ(g_live.load(), 2);  // the kept one is freed at once
  out1 = nil;
  EXPECT_FALSE(died);
  EXPECT_EQ(g_live.load(), 1);
  out2 = nil;
  EXPECT_TRUE(died);
  EXPECT_EQ(g_live.load(), 0);
}

TEST(TRecyclePoolTest, ManyThreadsNeverNeedMoreItemsThanThreads) {
  constexpr int kThreads = 4;
  constexpr int kIterations = 3000;
  g_created = 0;
  bool died = false;
  P<CPool> pool = newP<CPool>(-1, died);
  std::atomic<int> dirty{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kIterations; ++i) {
        P<CItem> item = pool->get();
        if (item->value != 0) ++dirty;  // handed out twice or not reset
        item->value = t + 1;
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(dirty.load(), 0);
  EXPECT_LE(g_created.load(), kThreads);
  EXPECT_EQ(pool->getFreeCount(), g_created.load());
  pool = nil;
  EXPECT_TRUE(died);
  EXPECT_EQ(g_live.load(), 0);
}

}  // namespace
}  // namespace qo

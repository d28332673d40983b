// CThreadLocalStorage: one value per thread and slot, removal, release.
#include "qo/thread/CThreadLocalStorage.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "qo/core/TSimpleType.h"
#include "qo/thread/CThreadLocalStorageManager.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CCounted;

int valueOf(CThreadLocalStorage const& storage) {
  P<TSimpleType<int>> value = storage.getValue().cast<TSimpleType<int>>();
  return value ? value->get() : -1;
}

TEST(CThreadLocalStorageTest, EachThreadSeesOnlyItsOwnValue) {
  CThreadLocalStorage storage;
  EXPECT_TRUE(storage.getValue().isNull());
  auto value = newP<TSimpleType<int>>(100);
  storage.setValue(value.get());
  EXPECT_EQ(value->getRefCountForDebugging(), 2);  // shared, not adopted
  constexpr int kThreads = 6;
  std::vector<int> seenBefore(kThreads, 0), seenAfter(kThreads, 0);
  test::joinAll(test::startThreads(kThreads, [&](int t) {
    seenBefore[static_cast<size_t>(t)] = valueOf(storage);
    for (int i = 0; i < 200; ++i) storage.setValue(newP<TSimpleType<int>>(t * 1000 + i).get());
    seenAfter[static_cast<size_t>(t)] = valueOf(storage);
  }));
  for (int t = 0; t < kThreads; ++t) {
    EXPECT_EQ(seenBefore[static_cast<size_t>(t)], -1);
    EXPECT_EQ(seenAfter[static_cast<size_t>(t)], t * 1000 + 199);
  }
  EXPECT_EQ(storage.getValue().get(), static_cast<IBase*>(value.get()));
  storage.setValue(nullptr);
  EXPECT_EQ(value->getRefCountForDebugging(), 1);
}

TEST(CThreadLocalStorageTest, SlotsAreIndependentAndNullRemoves) {
  std::atomic<int> live{0};
  CThreadLocalStorage first, second;
  EXPECT_NE(first.getSlot(), second.getSlot());
  first.setValue(newP<CCounted>(live).get());
  EXPECT_FALSE(first.getValue().isNull());
  EXPECT_TRUE(second.getValue().isNull());
  second.setValue(newP<CCounted>(live).get());
  EXPECT_EQ(live.load(), 2);
  first.setValue(nullptr);
  EXPECT_TRUE(first.getValue().isNull());
  EXPECT_EQ(live.load(), 1);
  second.setValue(newP<CCounted>(live).get());  // replaces and releases
  EXPECT_EQ(live.load(), 1);
  second.setValue(nullptr);
  second.setValue(nullptr);
  EXPECT_EQ(live.load(), 0);
}

}  // namespace
}  // namespace qo

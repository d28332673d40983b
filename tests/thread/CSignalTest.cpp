// CSignal: a manual-reset event, initially unset, releasing every waiter.
#include "qo/thread/CSignal.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

constexpr int kLongWait = 20000;  // an upper bound only

TEST(CSignalTest, StartsUnsetAndStaysSetUntilReset) {
  CSignal signal;
  EXPECT_FALSE(signal.isSet());
  EXPECT_FALSE(signal.wait(0));
  EXPECT_FALSE(signal.wait(20));
  signal.set();
  EXPECT_TRUE(signal.isSet());
  EXPECT_TRUE(signal.wait(-1));
  EXPECT_TRUE(signal.wait(0));  // waiting does not consume it
  signal.set();
  signal.reset();
  EXPECT_FALSE(signal.isSet());
  signal.reset();
  EXPECT_FALSE(signal.wait(0));
}

TEST(CSignalTest, OneSetReleasesEveryWaiter) {
  constexpr int kWaiters = 8;
  CSignal go, allWaiting;
  std::atomic<int> waiting{0}, released{0};
  auto threads = test::startThreads(kWaiters, [&](int) {
    if (++waiting == kWaiters) allWaiting.set();
    if (go.wait(-1)) ++released;
  });
  ASSERT_TRUE(allWaiting.wait(kLongWait));
  EXPECT_EQ(released.load(), 0);
  go.set();
  test::joinAll(threads);
  EXPECT_EQ(released.load(), kWaiters);
}

TEST(CSignalTest, PingPongBetweenTwoThreadsKeepsOrder) {
  constexpr int kRounds = 500;
  CSignal ping, pong;
  std::vector<int> log;  // written in turn, guarded by the hand-over
  auto other = test::startThreads(1, [&](int) {
    for (int i = 0; i < kRounds; ++i) {
      ASSERT_TRUE(ping.wait(kLongWait));
      ping.reset();
      log.push_back(2 * i + 1);
      pong.set();
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    log.push_back(2 * i);
    ping.set();
    ASSERT_TRUE(pong.wait(kLongWait));
    pong.reset();
  }
  test::joinAll(other);
  ASSERT_EQ(log.size(), 2u * kRounds);
  for (int i = 0; i < 2 * kRounds; ++i) ASSERT_EQ(log[static_cast<size_t>(i)], i);
}

}  // namespace
}  // namespace qo

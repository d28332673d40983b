// CWindowsEvent: manual and auto reset, the initial state and const waits.
#include "qo/thread/CWindowsEvent.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CFuncThread;

constexpr int kLongWait = 20000;  // an upper bound only

TEST(CWindowsEventTest, InitialStateAndKind) {
  struct Case {
    bool manual, initial;
    bool firstWait, secondWait;
  };
  Case const cases[] = {
      {true, false, false, false},
      {true, true, true, true},    // manual: stays set
      {false, false, false, false},
      {false, true, true, false},  // auto: the first wait consumes it
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.manual << c.initial);
    CWindowsEvent const event(c.manual, c.initial);
    EXPECT_NE(event.getHandle(), nullptr);
    EXPECT_EQ(event.wait(0), c.firstWait);
    EXPECT_EQ(event.isSet(), c.secondWait);
  }
}

TEST(CWindowsEventTest, AutoResetReleasesOneWaiterPerSet) {
  constexpr int kWaiters = 4;
  CWindowsEvent event(false, false);
  std::atomic<int> released{0};
  std::vector<P<CThread>> threads;
  for (int i = 0; i < kWaiters; ++i) {
    threads.push_back(newP<CFuncThread>([&](CFuncThread&) {
      ASSERT_TRUE(event.wait(kLongWait));
      ++released;
    }));
  }
  for (auto& t : threads) t->start();
  for (int i = 1; i <= kWaiters; ++i) {
    event.set();
    // The next set must not be merged with this one: wait until a waiter
    // has consumed it.
    while (released.load() < i) CThread::yield(false);
  }
  for (auto& t : threads) t->join(true);
  EXPECT_EQ(released.load(), kWaiters);
  EXPECT_FALSE(event.wait(0));
}

TEST(CWindowsEventTest, ResetClearsAManualEvent) {
  CWindowsEvent event(true, true);
  event.reset();
  EXPECT_FALSE(event.wait(20));
  event.set();
  EXPECT_TRUE(event.wait(-1));
  EXPECT_TRUE(event.isSet());
}

}  // namespace
}  // namespace qo

// CWindowsEvent: manual and auto reset, the initial state and const waits.
#include "qo/thread/CWindowsEvent.h"

#include <gtest/gtest.h>

#include <atomic>

#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

TEST(CWindowsEventTest, InitialStateKindAndReset) {
  struct Case {
    bool manual, initial, firstWait, secondWait;
  };
  Case const cases[] = {
      {true, false, false, false},
      {true, true, true, true},  // manual: stays set
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
  CWindowsEvent event(true, true);
  event.reset();
  EXPECT_FALSE(event.wait(20));
  event.set();
  EXPECT_TRUE(event.wait(-1));
  EXPECT_TRUE(event.isSet());
}

TEST(CWindowsEventTest, AutoResetReleasesOneWaiterPerSet) {
  constexpr int kWaiters = 4;
  CWindowsEvent event(false, false);
  std::atomic<int> released{0};
  auto threads = test::startThreads(kWaiters, [&](int) {
    ASSERT_TRUE(event.wait(20000));
    ++released;
  });
  for (int i = 1; i <= kWaiters; ++i) {
    event.set();
    // Wait until a waiter consumed this set, so the next is not merged with it.
    while (released.load() < i) CThread::yield(false);
  }
  test::joinAll(threads);
  EXPECT_EQ(released.load(), kWaiters);
  EXPECT_FALSE(event.wait(0));
}

}  // namespace
}  // namespace qo

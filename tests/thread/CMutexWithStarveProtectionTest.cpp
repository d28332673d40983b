// CMutexWithStarveProtection: per-thread recursion, ignored extra unlocks,
// mutual exclusion under load, and the gate that lets a waiter in first.
#include "qo/thread/CMutexWithStarveProtection.h"

#include <gtest/gtest.h>

#include <mutex>
#include <string>
#include <vector>

#include "qo/thread/CMutexLock.h"
#include "qo/thread/CSignal.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CFuncThread;

constexpr int kLongWait = 20000;  // an upper bound only

// Whether another thread could take the main lock right now.
bool freeForOthers(CMutexWithStarveProtection& mutex) {
  bool taken = false;
  auto probe = newP<CFuncThread>([&](CFuncThread&) {
    // The main lock itself, bypassing gate and count (unlock() is virtual).
    CMutex& main = mutex;
    taken = main.tryLock();
    if (taken) main.CMutex::unlock();
  });
  probe->start();
  probe->join(true);
  return taken;
}

TEST(CMutexWithStarveProtectionTest, NestedLocksNeedAsManyUnlocks) {
  CMutexWithStarveProtection mutex;
  EXPECT_EQ(mutex.getRecursionCount(), 0);
  for (int depth = 1; depth <= 3; ++depth) {
    mutex.lock();
    EXPECT_EQ(mutex.getRecursionCount(), depth);
  }
  EXPECT_FALSE(freeForOthers(mutex));
  mutex.unlock();
  mutex.unlock();
  EXPECT_EQ(mutex.getRecursionCount(), 1);
  EXPECT_FALSE(freeForOthers(mutex));
  mutex.unlock();
  EXPECT_EQ(mutex.getRecursionCount(), 0);
  EXPECT_TRUE(freeForOthers(mutex));
}

TEST(CMutexWithStarveProtectionTest, UnlockWithoutHoldingIsIgnored) {
  CMutexWithStarveProtection mutex;
  mutex.unlock();  // never locked by this thread
  EXPECT_EQ(mutex.getRecursionCount(), 0);
  CSignal held, done;
  auto holder = newP<CFuncThread>([&](CFuncThread&) {
    CMutexLock lock(mutex);
    held.set();
    (void)done.wait(kLongWait);
  });
  holder->start();
  ASSERT_TRUE(held.wait(kLongWait));
  mutex.unlock();  // would release the holder's lock if it were not ignored
  mutex.unlock();
  EXPECT_FALSE(freeForOthers(mutex));
  done.set();
  holder->join(true);
  EXPECT_TRUE(freeForOthers(mutex));
}

TEST(CMutexWithStarveProtectionTest, ManyThreadsCountExactly) {
  CMutexWithStarveProtection mutex;
  EXPECT_EQ(test::countUnderLock(mutex, 8, 3000, true), 8LL * 3000);
  EXPECT_TRUE(freeForOthers(mutex));
}

// Exposes the gate, to see when a waiter has queued.
class CObservableMutex : public CMutexWithStarveProtection {
public:
  using CMutexWithStarveProtection::getGate;
};

TEST(CMutexWithStarveProtectionTest, WaiterGetsInBeforeTheReleasingThreadReenters) {
  CObservableMutex mutex;
  std::mutex orderMutex;
  std::vector<std::string> order;
  auto record = [&](char const* who) {
    std::lock_guard<std::mutex> lock(orderMutex);
    order.push_back(who);
  };
  mutex.lock();
  auto waiter = newP<CFuncThread>([&](CFuncThread&) {
    CMutexLock lock(mutex);
    record("waiter");
  });
  waiter->start();
  // The waiter holds the gate exactly while it waits for the main lock.
  while (mutex.getGate().tryLock()) {
    mutex.getGate().unlock();
    CThread::yield(false);
  }
  mutex.unlock();
  mutex.lock();  // queues at the gate behind the waiter
  record("releaser");
  mutex.unlock();
  waiter->join(true);
  EXPECT_EQ(order, (std::vector<std::string>{"waiter", "releaser"}));
}

}  // namespace
}  // namespace qo

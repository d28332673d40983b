// CThreadList: registration for a thread's whole life and stopAllThreads
// with its deadline and its stopBeforeProcessExits filter.
#include "qo/thread/CThreadList.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "qo/thread/CThread.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CWaitingThread;

constexpr int kLongWait = 20000;  // an upper bound only

TEST(CThreadListTest, ListsAThreadFromConstructionToDestruction) {
  int const before = CThreadList::get()->getSize();
  {
    auto first = newP<CThread>();
    auto second = newP<CWaitingThread>();
    EXPECT_EQ(CThreadList::get()->getSize(), before + 2);
    second->start();
    second->detach(true);
    EXPECT_EQ(CThreadList::get()->getSize(), before + 2);  // detached threads stay listed
    second->signalStop();
    second->join(false);
  }
  EXPECT_EQ(CThreadList::get()->getSize(), before);
}

TEST(CThreadListTest, RemoveOfAnUnlistedThreadIsIgnored) {
  int const before = CThreadList::get()->getSize();
  auto thread = newP<CThread>();
  CThreadList::get()->remove(thread.get());
  CThreadList::get()->remove(thread.get());
  EXPECT_EQ(CThreadList::get()->getSize(), before);
  CThreadList::get()->add(thread.get());  // the destructor removes it again
}

TEST(CThreadListTest, StopAllThreadsWithoutLimitSignalsAndWaitsForAll) {
  // Other tests' threads would be stopped too; there must be none.
  ASSERT_EQ(CThreadList::get()->getSize(), 0);
  std::vector<P<CWaitingThread>> threads;
  for (int i = 0; i < 4; ++i) threads.push_back(newP<CWaitingThread>());
  for (auto& t : threads) t->start();
  for (auto& t : threads) ASSERT_TRUE(t->running().wait(kLongWait));
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, true));
  for (auto& t : threads) {
    EXPECT_FALSE(t->isAlive());
    EXPECT_FALSE(t->checkContinue());
    t->join(true);
  }
}

TEST(CThreadListTest, StopAllThreadsGivesUpAfterTheDeadline) {
  ASSERT_EQ(CThreadList::get()->getSize(), 0);
  auto stubborn = newP<CWaitingThread>(true);  // ignores the stop request
  stubborn->start();
  ASSERT_TRUE(stubborn->running().wait(kLongWait));
  auto started = std::chrono::steady_clock::now();
  EXPECT_FALSE(CThreadList::get()->stopAllThreads(30, true));
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(30));
  EXPECT_TRUE(stubborn->isAlive());
  EXPECT_FALSE(stubborn->checkContinue());  // it was asked
  stubborn->wake().set();
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, true));
  EXPECT_FALSE(stubborn->isAlive());
}

TEST(CThreadListTest, FilterSkipsThreadsThatNeedNotStopBeforeExit) {
  ASSERT_EQ(CThreadList::get()->getSize(), 0);
  auto mustStop = newP<CWaitingThread>();
  auto mayRun = newP<CWaitingThread>();
  mayRun->setStopBeforeProcessExits(false);
  mustStop->start();
  mayRun->start();
  ASSERT_TRUE(mayRun->running().wait(kLongWait));
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, true));
  EXPECT_FALSE(mustStop->isAlive());
  EXPECT_TRUE(mayRun->isAlive());
  EXPECT_TRUE(mayRun->checkContinue());  // not even signalled
  // Without the filter it is stopped too.
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, false));
  EXPECT_FALSE(mayRun->isAlive());
  EXPECT_FALSE(mayRun->checkContinue());
}

TEST(CThreadListTest, ZeroTimeoutStillSignalsAndReportsTheRunningThread) {
  ASSERT_EQ(CThreadList::get()->getSize(), 0);
  auto stubborn = newP<CWaitingThread>(true);
  stubborn->start();
  ASSERT_TRUE(stubborn->running().wait(kLongWait));
  EXPECT_FALSE(CThreadList::get()->stopAllThreads(0, true));
  EXPECT_FALSE(stubborn->checkContinue());
  stubborn->wake().set();
  stubborn->join(true);
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(0, true));  // nothing alive: at once
}

}  // namespace
}  // namespace qo

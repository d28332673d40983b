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

int listed() { return CThreadList::get()->getSize(); }

P<CWaitingThread> running(bool ignoreStop = false) {
  auto thread = newP<CWaitingThread>(ignoreStop);
  thread->start();
  EXPECT_TRUE(thread->running().wait(kLongWait));
  return thread;
}

TEST(CThreadListTest, ListsAThreadFromConstructionToDestruction) {
  int const before = listed();
  {
    auto first = newP<CThread>();
    auto second = newP<CWaitingThread>();
    EXPECT_EQ(listed(), before + 2);
    second->start();
    second->detach(true);
    EXPECT_EQ(listed(), before + 2);  // detached threads stay listed
    second->signalStop();
    second->join(false);
    CThreadList::get()->remove(first.get());  // removing an unlisted thread is ignored
    CThreadList::get()->remove(first.get());
    EXPECT_EQ(listed(), before + 1);
    CThreadList::get()->add(first.get());  // the destructor removes it again
  }
  EXPECT_EQ(listed(), before);
}

// The stop tests stop every listed thread: there must be none of other tests.
TEST(CThreadListTest, StopAllThreadsWithoutLimitSignalsAndWaitsForAll) {
  ASSERT_EQ(listed(), 0);
  std::vector<P<CWaitingThread>> threads;
  for (int i = 0; i < 4; ++i) threads.push_back(running());
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, true));
  for (auto& t : threads) {
    EXPECT_FALSE(t->isAlive());
    EXPECT_FALSE(t->checkContinue());
    t->join(true);
  }
}

TEST(CThreadListTest, StopAllThreadsGivesUpAfterTheDeadlineButSignals) {
  ASSERT_EQ(listed(), 0);
  auto stubborn = running(true);  // ignores the stop request
  EXPECT_FALSE(CThreadList::get()->stopAllThreads(0, true));
  EXPECT_FALSE(stubborn->checkContinue());  // it was asked
  auto started = std::chrono::steady_clock::now();
  EXPECT_FALSE(CThreadList::get()->stopAllThreads(30, true));
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(30));
  EXPECT_TRUE(stubborn->isAlive());
  stubborn->wake().set();
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, true));
  EXPECT_FALSE(stubborn->isAlive());
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(0, true));  // nothing alive: at once
}

TEST(CThreadListTest, FilterSkipsThreadsThatNeedNotStopBeforeExit) {
  ASSERT_EQ(listed(), 0);
  auto mustStop = running();
  auto mayRun = newP<CWaitingThread>();
  mayRun->setStopBeforeProcessExits(false);
  mayRun->start();
  ASSERT_TRUE(mayRun->running().wait(kLongWait));
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, true));
  EXPECT_FALSE(mustStop->isAlive());
  EXPECT_TRUE(mayRun->isAlive());
  EXPECT_TRUE(mayRun->checkContinue());  // not even signalled
  EXPECT_TRUE(CThreadList::get()->stopAllThreads(-1, false));  // without the filter it stops too
  EXPECT_FALSE(mayRun->isAlive());
  EXPECT_FALSE(mayRun->checkContinue());
}

}  // namespace
}  // namespace qo

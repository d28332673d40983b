// IBackgroundOpPacer as CBackgroundOpThread consults it between jobs.
#include "qo/thread/IBackgroundOpPacer.h"

#include <gtest/gtest.h>

#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "qo/thread/CBackgroundOpThread.h"

namespace qo {
namespace {

constexpr int kLongWait = 20000;

// Answers the scripted delays in turn (then 0), recording what it was told.
class CScriptedPacer : public CBase, public IBackgroundOpPacer {
public:
  explicit CScriptedPacer(std::vector<int> delays, bool throws = false)
      : m_delays(std::move(delays)), m_throws(throws) {}
  int getDelayBeforeNextJob(long long lastJobMicros) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_told.push_back(lastJobMicros);
    if (m_throws) throw std::runtime_error("pacer failed");
    return m_told.size() <= m_delays.size() ? m_delays[m_told.size() - 1] : 0;
  }
  std::vector<long long> told() {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_told;
  }

private:
  std::mutex m_mutex;
  std::vector<int> const m_delays;
  bool const m_throws;
  std::vector<long long> m_told;
};

// Records the order in which jobs ran.
class COrderJob : public CBackgroundOpThread::CJob {
public:
  COrderJob(std::vector<int>& order, int number) : CJob(nullptr), m_order(order), m_number(number) {}
  void run(void*, CBackgroundOpThread*) override { m_order.push_back(m_number); }

protected:
  void dropReferences() noexcept override {}

private:
  std::vector<int>& m_order;  // written by the worker only
  int const m_number;
};

TEST(IBackgroundOpPacer, TheWorkerWaitsTheDelaysAndAsksAgain) {
  struct Case {
    std::vector<int> delays;
    bool throws;
    std::size_t asks;  // for two jobs
  };
  Case const cases[] = {
      {{}, false, 2},          // no delay: one ask per job
      {{5, 0, 5}, false, 4},   // a delay before each job
      {{1, 1, 1}, false, 5},   // three delays before the first job
      {{}, true, 2},           // a throwing pacer lets the jobs run
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(std::to_string(c.delays.size()) + (c.throws ? " throwing" : ""));
    std::vector<int> order;
    P<CBackgroundOpThread> worker = newP<CBackgroundOpThread>();
    P<CScriptedPacer> pacer = newP<CScriptedPacer>(c.delays, c.throws);
    worker->setPacer(pacer);
    P<IBackgroundOp> first = worker->addJob(newP<COrderJob>(order, 1));
    P<IBackgroundOp> second = worker->addJob(newP<COrderJob>(order, 2));
    worker->start();
    ASSERT_TRUE(second->waitFinished(kLongWait));
    ASSERT_TRUE(first->hasFinished());
    worker->stop(true);
    EXPECT_EQ((std::vector<int>{1, 2}), order);
    std::vector<long long> const told = pacer->told();
    ASSERT_EQ(c.asks, told.size());
    EXPECT_EQ(0, told[0]);  // no job before the first
    // After a delay the previous job's rest is over: 0 again.
    for (std::size_t i = 1; i < told.size(); ++i) {
      if (i - 1 < c.delays.size() && c.delays[i - 1] > 0) EXPECT_EQ(0, told[i]) << i;
      EXPECT_GE(told[i], 0);
    }
  }
}

TEST(IBackgroundOpPacer, AStopEndsAPauseAndAbortsTheWaitingJobs) {
  std::vector<int> order;
  P<CBackgroundOpThread> worker = newP<CBackgroundOpThread>();
  worker->setPacer(newP<CScriptedPacer>(std::vector<int>(1000, 3600 * 1000)));
  P<IBackgroundOp> job = worker->addJob(newP<COrderJob>(order, 1));
  worker->start();
  worker->stop(true);  // wakes the worker out of its hour-long pause
  ASSERT_TRUE(job->waitFinished(kLongWait));
  EXPECT_TRUE(order.empty());
  try {
    job->throwErrorIfFailed();
    ADD_FAILURE() << "no error";
  } catch (CError const& e) {
    EXPECT_TRUE(e.getMessage().Contains(u"aborted")) << e.getMessage().toUTF8();
  }
}

}  // namespace
}  // namespace qo

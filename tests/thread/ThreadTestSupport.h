// Helpers for the thread tests: threads and runnables from lambdas, a
// thread that a stop request wakes, a live-instance counter, and runners.
#ifndef QO_TESTS_THREAD_THREADTESTSUPPORT_H
#define QO_TESTS_THREAD_THREADTESTSUPPORT_H

#include <atomic>
#include <functional>
#include <utility>
#include <vector>

#include "qo/core/CBase.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThread.h"
#include "qo/thread/CMutexLock.h"
#include "qo/thread/CWindowsEvent.h"
#include "qo/thread/IRunnable.h"

namespace qo::test {

/// Runs a lambda as its body; the lambda gets the thread.
class CFuncThread : public CThread {
public:
  explicit CFuncThread(std::function<void(CFuncThread&)> body) : m_body(std::move(body)) {}

protected:
  void runImpl() override { m_body(*this); }

private:
  std::function<void(CFuncThread&)> m_body;
};

/// A thread whose body waits until signalStop() wakes it (or, with
/// ignoreStop, until wake() is set). The wake-up is an auto-reset event,
/// so each run waits afresh.
class CWaitingThread : public CThread {
public:
  explicit CWaitingThread(bool ignoreStop = false) : m_ignoreStop(ignoreStop), m_wake(false, false) {}
  void signalStop() override {
    CThread::signalStop();
    if (!m_ignoreStop) m_wake.set();
  }
  CWindowsEvent& wake() { return m_wake; }
  CSignal& running() { return m_running; }

protected:
  void runImpl() override {
    m_running.set();
    (void)m_wake.wait(-1);
  }

private:
  bool const m_ignoreStop;
  CWindowsEvent m_wake;
  CSignal m_running;
};

class CFuncRunnable : public CBase, public IRunnable {
public:
  explicit CFuncRunnable(std::function<void()> body) : m_body(std::move(body)) {}
  void run() override { m_body(); }

private:
  std::function<void()> m_body;
};

/// Counts live instances in a counter the test owns.
class CCounted : public CBase {
public:
  explicit CCounted(std::atomic<int>& live) : m_live(live) { ++m_live; }
  ~CCounted() override { --m_live; }

private:
  std::atomic<int>& m_live;
};

/// Starts `count` threads, each running body(index).
inline std::vector<P<CThread>> startThreads(int count, std::function<void(int)> const& body) {
  std::vector<P<CThread>> threads;
  for (int i = 0; i < count; ++i) threads.push_back(newP<CFuncThread>([body, i](CFuncThread&) { body(i); }));
  for (auto& t : threads) t->start();
  return threads;
}
inline void joinAll(std::vector<P<CThread>> const& threads) {
  for (auto const& t : threads) t->join(true);
}

/// threads x iterations unguarded increments, each under the mutex (taken
/// twice when nested); the result is exact only if the mutex excludes.
inline long long countUnderLock(IMutex& mutex, int threads, int iterations, bool nested) {
  long long counter = 0;
  joinAll(startThreads(threads, [&](int) {
    for (int i = 0; i < iterations; ++i) {
      CMutexLock lock(mutex);
      if (nested) mutex.lock();
      long long const seen = counter;
      counter = seen + 1;
      if (nested) mutex.unlock();
    }
  }));
  return counter;
}

}  // namespace qo::test

#endif  // QO_TESTS_THREAD_THREADTESTSUPPORT_H

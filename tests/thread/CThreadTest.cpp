// CThread: start, join and its error, restart, detach, stop, the entry
// routine (init service, naming, error log, thread-local release) and the
// static thread services.
#include "qo/thread/CThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/CSystemError.h"
#include "qo/core/ErrorLog.h"
#include "qo/thread/CSignal.h"
#include "qo/thread/CThreadLocalStorage.h"
#include "qo/thread/IThreadInitService.h"
#include "thread/ThreadTestSupport.h"

namespace qo {
namespace {

using test::CCounted;
using test::CFuncRunnable;
using test::CFuncThread;
using test::CWaitingThread;

constexpr int kLongWait = 20000;  // an upper bound only; passing runs are quick

// Collects logError reports while alive.
class CapturedErrorLog {
public:
  CapturedErrorLog() : m_previous(setErrorLogHook(&hook)) {}
  ~CapturedErrorLog() {
    setErrorLogHook(m_previous);
    std::lock_guard<std::mutex> lock(s_mutex);
    s_entries.clear();
  }
  static std::vector<std::pair<String, String>> take() {
    std::lock_guard<std::mutex> lock(s_mutex);
    return s_entries;
  }

private:
  static void hook(CError const& error, String const& summary) {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_entries.emplace_back(summary, error.getMessage());
  }
  static inline std::mutex s_mutex;
  static inline std::vector<std::pair<String, String>> s_entries;
  ErrorLogHook const m_previous;
};

TEST(CThreadTest, RunsTheRunnableOnAnotherThread) {
  unsigned long long bodyId = 0;
  auto runnable = newP<CFuncRunnable>([&] { bodyId = CThread::getCurrentID(); });
  auto thread = newP<CThread>(runnable.get());
  EXPECT_EQ(thread->getID(), 0u);
  thread->start();
  thread->join(true);
  EXPECT_NE(bodyId, 0u);
  EXPECT_NE(bodyId, CThread::getCurrentID());
  EXPECT_EQ(bodyId, thread->getID());
  EXPECT_FALSE(thread->isAlive());
  EXPECT_TRUE(thread->getThreadError().isNull());
}

TEST(CThreadTest, JoinFromTheThreadItselfReturnsAtOnce) {
  CSignal selfJoined;
  auto thread = newP<CFuncThread>([&](CFuncThread& self) {
    self.join(false);
    self.join(true);
    selfJoined.set();
  });
  thread->start();
  EXPECT_TRUE(selfJoined.wait(kLongWait));
  thread->join(true);
}

TEST(CThreadTest, JoinTrueRethrowsTheBodysErrorWithItsClass) {
  CapturedErrorLog log;
  auto thread = newP<CFuncThread>([](CFuncThread&) {
    throw CIOError(CIOError::kReadFailed, u"disk gone", CProps().add(u"uri", u"file:///x"));
  });
  thread->start();
  try {
    thread->join(true);
    FAIL() << "join(true) did not rethrow";
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getDesc(), String(u"disk gone [IO 2 (uri='file:///x')]"));
  }
  ASSERT_FALSE(thread->getThreadError().isNull());
  EXPECT_EQ(thread->getThreadError()->getMessage(), String(u"disk gone"));
  EXPECT_THROW(thread->throwThreadError(), CIOError);
  EXPECT_THROW(thread->stop(true), CIOError);
  EXPECT_NO_THROW(thread->join(false));
  auto entries = CapturedErrorLog::take();
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].first, String(u"CThread::runImpl threw an exception."));
  EXPECT_EQ(entries[0].second, String(u"disk gone"));
  // A standard exception becomes a CStdExceptionError.
  auto other = newP<CFuncThread>([](CFuncThread&) { throw std::out_of_range("index 7"); });
  other->start();
  try {
    other->join(true);
    FAIL() << "join(true) did not rethrow";
  } catch (CStdExceptionError const& e) {
    EXPECT_EQ(e.getMessage(), String(u"index 7"));
    EXPECT_EQ(e.getErrorCode(), CStdExceptionError::kOutOfRange);
  }
}

class COnFinishedThread : public CThread {
public:
  COnFinishedThread(bool bodyThrows, bool finishThrows) : m_bodyThrows(bodyThrows), m_finishThrows(finishThrows) {}
  bool sawBodyErrorInFinish = false;

protected:
  void runImpl() override {
    if (m_bodyThrows) throw CError(u"body");
  }
  void onRunFinished() override {
    sawBodyErrorInFinish = !getThreadError().isNull();
    if (m_finishThrows) throw CError(u"finish");
  }

private:
  bool const m_bodyThrows;
  bool const m_finishThrows;
};

TEST(CThreadTest, OnRunFinishedRunsAfterTheBodyAndItsErrorIsKeptLast) {
  struct Case {
    bool bodyThrows, finishThrows;
    char16_t const* kept;
    std::vector<String> summaries;
  };
  Case const cases[] = {
      {false, false, nullptr, {}},
      {true, false, u"body", {u"CThread::runImpl threw an exception."}},
      {false, true, u"finish", {u"CThread::onRunFinished threw an exception."}},
      {true, true, u"finish", {u"CThread::runImpl threw an exception.", u"CThread::onRunFinished threw an exception."}},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bodyThrows << c.finishThrows);
    CapturedErrorLog log;
    auto thread = newP<COnFinishedThread>(c.bodyThrows, c.finishThrows);
    thread->start();
    thread->join(false);
    EXPECT_EQ(thread->sawBodyErrorInFinish, c.bodyThrows);
    if (c.kept) {
      ASSERT_FALSE(thread->getThreadError().isNull());
      EXPECT_EQ(thread->getThreadError()->getMessage(), String(c.kept));
    } else {
      EXPECT_TRUE(thread->getThreadError().isNull());
    }
    std::vector<String> summaries;
    for (auto const& entry : CapturedErrorLog::take()) summaries.push_back(entry.first);
    EXPECT_EQ(summaries, c.summaries);
  }
}

TEST(CThreadTest, RestartsAfterJoinAndDetachDoesNothingBeforeStartOrAfterJoin) {
  std::atomic<int> runs{0};
  auto thread = newP<CFuncThread>([&](CFuncThread&) { ++runs; });
  thread->detach(false);
  EXPECT_FALSE(thread->isDetached());
  for (int i = 1; i <= 3; ++i) {
    thread->start();
    thread->join(true);
    EXPECT_EQ(runs.load(), i);
    EXPECT_FALSE(thread->isAlive());
  }
  thread->detach(false);
  EXPECT_FALSE(thread->isDetached());
  EXPECT_TRUE(thread->getStopBeforeProcessExits());
}

TEST(CThreadTest, StartWhileRunningStopsAndJoinsTheOldRunFirst) {
  auto thread = newP<CWaitingThread>();
  thread->start();
  ASSERT_TRUE(thread->running().wait(kLongWait));
  EXPECT_TRUE(thread->isAlive());
  EXPECT_TRUE(thread->checkContinue());
  thread->start();  // the first run only ends through signalStop()
  EXPECT_TRUE(thread->checkContinue());  // the flag is reset for the new run
  EXPECT_TRUE(thread->isAlive());
  thread->stop(true);
  EXPECT_FALSE(thread->isAlive());
  EXPECT_FALSE(thread->checkContinue());
}

TEST(CThreadTest, DetachedThreadCannotBeRestarted) {
  CSignal release;
  auto thread = newP<CFuncThread>([&](CFuncThread&) { (void)release.wait(kLongWait); });
  thread->start();
  thread->detach(false);
  EXPECT_TRUE(thread->isDetached());
  EXPECT_FALSE(thread->getStopBeforeProcessExits());
  try {
    thread->start();
    FAIL() << "start() of a detached thread succeeded";
  } catch (CError const& e) {
    EXPECT_EQ(e.getDesc(), String(u"Detached threads cannot be restarted [function='CThread::start']"));
    EXPECT_EQ(typeid(e), typeid(CError));
  }
  release.set();
  thread->join(false);  // polls until the OS thread is gone
  EXPECT_FALSE(thread->isAlive());
}

// What a CDyingThread leaves behind when it dies.
struct DeathRecord {
  std::atomic<int> live{0};
  std::atomic<unsigned long long> diedOn{0};
  std::atomic<bool> bodyRanAfterDrop{false};
  CSignal died;
};

// Waits for go, drops the reference the test handed it (keepSelf), then
// still uses the object.
class CDyingThread : public CThread {
public:
  explicit CDyingThread(DeathRecord& record) : m_record(record) { ++m_record.live; }
  ~CDyingThread() override {
    m_record.diedOn = CThread::getCurrentID();
    m_record.bodyRanAfterDrop = m_ranAfterDrop.load();
    --m_record.live;
    m_record.died.set();
  }
  CSignal go;
  P<CDyingThread> keepSelf;

protected:
  void runImpl() override {
    (void)go.wait(kLongWait);
    P<CDyingThread> self = std::move(keepSelf);
    self.reset();  // may be the last reference
    // Safe only because destruction waits for the entry routine.
    m_ranAfterDrop = checkContinue();
  }

private:
  DeathRecord& m_record;
  std::atomic<bool> m_ranAfterDrop{false};
};

TEST(CThreadTest, ThreadHoldingTheLastReferenceDiesOnItsOwnThreadAfterItsBody) {
  for (bool detach : {true, false}) {
    // detached: the thread's own reference; otherwise one the body drops.
    SCOPED_TRACE(detach ? "detached" : "reference dropped by the body");
    DeathRecord record;
    unsigned long long id = 0;
    CSignal* go = nullptr;
    {
      auto thread = newP<CDyingThread>(record);
      if (!detach) thread->keepSelf = thread;
      thread->start();
      if (detach) thread->detach(true);
      EXPECT_EQ(thread->isDetached(), detach);
      id = thread->getID();
      go = &thread->go;
    }
    EXPECT_EQ(record.live.load(), 1);  // only its own thread holds it now
    EXPECT_FALSE(record.died.isSet());
    go->set();
    ASSERT_TRUE(record.died.wait(kLongWait));
    EXPECT_EQ(record.live.load(), 0);
    EXPECT_EQ(record.diedOn.load(), id);
    EXPECT_TRUE(record.bodyRanAfterDrop.load());
  }
}

TEST(CThreadTest, LastReleaseElsewhereStopsAndJoinsBeforeDestruction) {
  std::atomic<bool> bodyEnded{false};
  auto thread = newP<CFuncThread>([&](CFuncThread& self) {
    while (self.checkContinue()) CThread::yield(true);
    bodyEnded = true;
  });
  thread->start();
  thread.reset();
  EXPECT_TRUE(bodyEnded.load());
}

// Records (read after join) or refuses; installed for one test, then the default is restored.
class CRecordingInitService : public CBase, public IThreadInitService {
public:
  void initThread(String const& threadName) override {
    if (m_throw) throw CError(u"init refused");
    names.push_back(threadName);
    ids.push_back(CThread::getCurrentID());
  }
  bool m_throw = false;
  std::vector<String> names;
  std::vector<unsigned long long> ids;
};
struct InstalledInitService {
  explicit InstalledInitService(P<CRecordingInitService> const& service) {
    IThreadInitService::getGlobalSlot()->set(service);
  }
  ~InstalledInitService() { IThreadInitService::getGlobalSlot()->set(nil); }
};

std::string osThreadName(unsigned long long id) {
  std::ifstream comm("/proc/self/task/" + std::to_string(id) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

TEST(CThreadTest, EntryRoutineCallsTheInitServiceWithTheNameAndNamesTheThread) {
  auto service = newP<CRecordingInitService>();
  InstalledInitService installed(service);
  std::string seenName;
  bool const procNames = CSystemError::getPlatformDomain() == String(u"POSIX") && std::ifstream("/proc/self/task");
  auto thread = newP<CFuncThread>([&](CFuncThread&) {
    if (procNames) seenName = osThreadName(CThread::getCurrentID());
  });
  thread->setThreadName(u"qo.test.naming-is-long");
  EXPECT_EQ(thread->getThreadName(), String(u"qo.test.naming-is-long"));
  thread->start();
  thread->join(true);
  EXPECT_EQ(service->names, std::vector<String>{String(u"qo.test.naming-is-long")});
  EXPECT_EQ(service->ids, std::vector<unsigned long long>{thread->getID()});
  if (procNames) EXPECT_EQ(seenName, "qo.test.naming-");  // 15 bytes kept
}

TEST(CThreadTest, FailingInitServiceKeepsTheBodyFromRunning) {
  CapturedErrorLog log;
  auto service = newP<CRecordingInitService>();
  service->m_throw = true;
  InstalledInitService installed(service);
  std::atomic<bool> ran{false};
  auto thread = newP<CFuncThread>([&](CFuncThread&) { ran = true; });
  thread->start();
  EXPECT_THROW(thread->join(true), CError);
  EXPECT_FALSE(ran.load());
  EXPECT_EQ(thread->getThreadError()->getMessage(), String(u"init refused"));
}

TEST(CThreadTest, ThreadLocalValuesAreReleasedWhenTheThreadEnds) {
  std::atomic<int> live{0};
  CThreadLocalStorage first;
  CThreadLocalStorage second;
  std::vector<P<CThread>> threads;
  for (int i = 0; i < 6; ++i) {
    threads.push_back(newP<CFuncThread>([&](CFuncThread&) {
      first.setValue(newP<CCounted>(live).get());
      second.setValue(newP<CCounted>(live).get());
    }));
  }
  for (auto& t : threads) t->start();
  for (auto& t : threads) t->join(true);
  EXPECT_EQ(live.load(), 0);
}

TEST(CThreadTest, IsThreadAliveByIDAndKillThreadEndsItOrIsRefusedOnPOSIX) {
  EXPECT_TRUE(CThread::isThreadAlive(static_cast<long long>(CThread::getCurrentID())));
  EXPECT_FALSE(CThread::isThreadAlive(0));
  EXPECT_FALSE(CThread::isThreadAlive(0xFFFFFFF0LL));
  auto thread = newP<CWaitingThread>(true);
  thread->start();
  ASSERT_TRUE(thread->running().wait(kLongWait));
  long long const id = static_cast<long long>(thread->getID());
  EXPECT_TRUE(CThread::isThreadAlive(id));
  if (CSystemError::getPlatformDomain() == String(u"POSIX")) {
    try {
      CThread::killThread(id, 3);
      FAIL() << "killThread succeeded on POSIX";
    } catch (CSystemError const& e) {
      EXPECT_TRUE(e.isError(u"POSIX", ENOTSUP));
      EXPECT_EQ(e.getParams().lookup(u"function"), String(u"CThread::killThread"));
      EXPECT_EQ(e.getParams().lookup(u"api"), String(u"pthread_kill"));  // the POSIX call, never a Windows name
    }
    EXPECT_TRUE(thread->isAlive());
    thread->wake().set();
  } else {
    CThread::killThread(id, 3);
  }
  thread->join(false);
  EXPECT_FALSE(thread->isAlive());
}

TEST(CThreadTest, FlagsDefaultsAndSetters) {
  auto thread = newP<CThread>(nullptr, true);
  EXPECT_TRUE(thread->getUserFlag());
  EXPECT_TRUE(thread->getStopBeforeProcessExits());
  thread->setStopBeforeProcessExits(false);
  EXPECT_FALSE(thread->getStopBeforeProcessExits());
  EXPECT_FALSE(thread->isAlive());
  EXPECT_FALSE(thread->isDetached());
  EXPECT_TRUE(thread->checkContinue());
  thread->signalStop();
  EXPECT_FALSE(thread->checkContinue());
  thread->join(true);  // never started: nothing to wait for
  thread->start();     // no runnable: the body does nothing
  thread->join(true);
  EXPECT_TRUE(thread->getThreadError().isNull());
}

}  // namespace
}  // namespace qo

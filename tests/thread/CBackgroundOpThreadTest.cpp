// CBackgroundOpThread: queue order, finishing (error kept, references
// dropped, listener told once), waiting, the abort of queued jobs at stop,
// many producers, and the store job's exact copy.
#include "qo/thread/CBackgroundOpThread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "qo/core/CFileSystemError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/ErrorLog.h"
#include "qo/stream/CBufferStream.h"
#include "qo/thread/CSignal.h"
#include "fs/FakeFileSystem.h"

namespace qo {
namespace {

using test::CFakeFileSystem;
using Buffer = TBuffer<unsigned char>;

constexpr int kLongWait = 20000;  // an upper bound only; passing runs are quick
char const kAbort[] = "Background store operation aborted because CBackgroundOpThread needs to exit.";

CURI uri(std::string const& path) { return CURI(String(("mem:///" + path).c_str())); }

// Lines written by listeners, in the order they were told.
class CJournal {
public:
  void add(std::string line) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_lines.push_back(std::move(line));
    m_changed.notify_all();
  }
  std::vector<std::string> waitFor(std::size_t count) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait_for(lock, std::chrono::milliseconds(kLongWait), [&] { return m_lines.size() >= count; });
    return m_lines;
  }
  std::vector<std::string> lines() { return waitFor(0); }

private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::string> m_lines;
};

// Writes "<label>:ok" or "<label>:<message>" and keeps the last error and op;
// read them only after the journal shows the line (its mutex orders them).
class CListener : public CBase, public IDoneListener {
public:
  CListener(CJournal& journal, std::string label) : m_journal(journal), m_label(std::move(label)) {}
  void onBackgroundOpDone(IBackgroundOp* op, CError const* error) override {
    m_op = op;
    m_error = error ? error->clone() : P<CError>();
    m_journal.add(m_label + ":" + (error ? error->getMessage().toUTF8() : std::string("ok")));
  }
  IBackgroundOp* op() const { return m_op; }
  P<CError> error() const { return m_error; }

private:
  CJournal& m_journal;
  std::string const m_label;
  IBackgroundOp* m_op = nullptr;
  P<CError> m_error;
};

// Makes the fake's first call (or every call) wait until released.
struct Gate {
  CSignal entered;
  CSignal release;
  void install(CFakeFileSystem& fs) {
    fs.setHook([this](std::string const&) {
      entered.set();
      (void)release.wait(kLongWait);
    });
  }
};

P<Buffer> pattern(long long size) {
  P<Buffer> bytes = newP<Buffer>(size);
  for (long long i = 0; i < size; ++i) (*bytes)[i] = static_cast<unsigned char>((i * 7) ^ (i >> 8));
  return bytes;
}
P<CBufferStream> streamOf(P<Buffer> const& data) {
  return newP<CBufferStream>(static_cast<Buffer const*>(data.get()));
}

// Rethrows the op's error and hands it to check; fails unless an E is thrown.
template <class E, class Check>
void expectError(IBackgroundOp& op, Check check) {
  try {
    op.throwErrorIfFailed();
    ADD_FAILURE() << "nothing thrown";
  } catch (E const& e) {
    check(e);
  }
}

class CBackgroundOpThreadTest : public ::testing::Test {
protected:
  void TearDown() override { m_worker->stop(false); }
  P<CFakeFileSystem> m_fs = newP<CFakeFileSystem>();
  P<CBackgroundOpThread> m_worker = newP<CBackgroundOpThread>();
  CJournal m_journal;
};

TEST_F(CBackgroundOpThreadTest, JobsRunFirstInFirstOut) {
  EXPECT_EQ("qo.bgOp", m_worker->getThreadName().toUTF8());
  EXPECT_FALSE(m_worker->isAlive());
  // Queued before the worker starts, so the queue alone decides the order.
  P<Buffer> data = pattern(3);
  P<CBufferStream> source = streamOf(data);
  std::vector<P<IBackgroundOp>> ops;
  ops.push_back(m_worker->addCreateFolderJob(m_fs.get(), uri("a"), 3, nullptr));
  ops.push_back(m_worker->addDeleteFileJob(m_fs.get(), uri("b"), nullptr));
  ops.push_back(m_worker->addMoveFileJob(m_fs.get(), uri("c"), uri("d"), true, nullptr));
  ops.push_back(m_worker->addStoreJob(m_fs.get(), uri("e"), -1, source.get(), false, nullptr));
  ops.push_back(m_worker->addMoveFileJob(m_fs.get(), uri("f"), uri("g"), false, nullptr));
  ops.push_back(m_worker->addCreateFolderJob(m_fs.get(), uri("h"), -1, nullptr));
  for (auto const& op : ops) EXPECT_FALSE(op->hasFinished());
  m_worker->start();
  for (auto const& op : ops) {
    ASSERT_TRUE(op->waitFinished(kLongWait));
    op->throwErrorIfFailed();
  }
  EXPECT_EQ((std::vector<std::string>{"createFolder(mem:///a,3)", "deleteFile(mem:///b,false)",
                                      "moveFileOrFolder(mem:///c,mem:///d,true)",
                                      "createStream(mem:///e,access2,flags5)",
                                      "moveFileOrFolder(mem:///f,mem:///g,false)", "createFolder(mem:///h,-1)"}),
            m_fs->calls());
}

TEST_F(CBackgroundOpThreadTest, ListenerIsToldExactlyOnceWithTheError) {
  m_fs->setHook([](std::string const& call) {
    if (call.rfind("deleteFile", 0) == 0) {
      throw CFileSystemError(CFileSystemError::kNotFound, u"gone", CProps().add(u"uri", u"mem:///x"));
    }
    if (call == "createFolder(mem:///z,0)") throw std::out_of_range("no such index");
  });
  P<CListener> failed = newP<CListener>(m_journal, "delete");
  P<CListener> succeeded = newP<CListener>(m_journal, "create");
  m_worker->start();
  P<IBackgroundOp> bad = m_worker->addDeleteFileJob(m_fs.get(), uri("x"), failed.get());
  P<IBackgroundOp> good = m_worker->addCreateFolderJob(m_fs.get(), uri("y"), 0, succeeded.get());
  P<IBackgroundOp> other = m_worker->addCreateFolderJob(m_fs.get(), uri("z"), 0, nullptr);
  EXPECT_EQ((std::vector<std::string>{"delete:gone", "create:ok"}), m_journal.waitFor(2));
  ASSERT_TRUE(other->waitFinished(kLongWait));  // other exceptions become std exception errors
  expectError<CStdExceptionError>(*other, [](CStdExceptionError const& e) {
    EXPECT_EQ("no such index", e.getMessage().toUTF8());
    EXPECT_EQ(CStdExceptionError::getDomain(), e.getErrorCodeDomain());
  });
  m_worker->stop(true);  // nothing can call a listener after this
  EXPECT_EQ(2u, m_journal.lines().size());
  EXPECT_EQ(bad.get(), failed->op());
  EXPECT_EQ(good.get(), succeeded->op());
  EXPECT_EQ(nil, succeeded->error());
  P<CError> told = failed->error();
  ASSERT_TRUE(told);
  CError const& toldRef = *told;
  EXPECT_EQ(typeid(CFileSystemError), typeid(toldRef));
  EXPECT_EQ("mem:///x", told->getParams().lookup(u"uri").toUTF8());
  EXPECT_TRUE(bad->hasFinished());
  good->throwErrorIfFailed();
  for (int round = 0; round < 2; ++round) {  // the kept error is rethrown every time
    expectError<CFileSystemError>(*bad, [](CFileSystemError const& e) {
      EXPECT_EQ(CFileSystemError::kNotFound, e.getProblem());
      EXPECT_EQ("gone", e.getMessage().toUTF8());
    });
  }
}

TEST_F(CBackgroundOpThreadTest, StopFinishesQueuedJobsWithTheAbortErrorInQueueOrder) {
  constexpr int kQueued = 100;  // job 0 runs, the rest wait
  Gate gate;
  gate.install(*m_fs);
  m_worker->start();
  std::vector<P<CListener>> listeners;
  std::vector<P<IBackgroundOp>> ops;
  for (int i = 0; i <= kQueued; ++i) {
    listeners.push_back(newP<CListener>(m_journal, std::to_string(i)));
    ops.push_back(m_worker->addCreateFolderJob(m_fs.get(), uri(std::to_string(i)), i, listeners.back().get()));
    if (i == 0) ASSERT_TRUE(gate.entered.wait(kLongWait));
  }
  EXPECT_FALSE(ops[0]->hasFinished());
  EXPECT_FALSE(ops[0]->waitFinished(0));
  EXPECT_FALSE(ops[0]->waitFinished(20));  // the job cannot end before release
  // Waiters already blocked when the stop comes must all be woken by it.
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int t = 0; t < 4; ++t) {
    waiters.emplace_back([&] {
      for (auto const& op : ops) {
        if (op->waitFinished(-1)) woken++;
      }
    });
  }
  m_worker->signalStop();
  gate.release.set();
  m_worker->stop(false);
  for (std::thread& t : waiters) t.join();
  EXPECT_EQ(4 * (kQueued + 1), woken.load());

  // One line per job, in queue order: every listener was told exactly once.
  std::vector<std::string> expected{"0:ok"};
  for (int i = 1; i <= kQueued; ++i) expected.push_back(std::to_string(i) + ":" + kAbort);
  EXPECT_EQ(expected, m_journal.lines());
  EXPECT_EQ(std::vector<std::string>{"createFolder(mem:///0,0)"}, m_fs->calls());
  EXPECT_TRUE(ops[0]->hasFinished());
  EXPECT_TRUE(ops[0]->waitFinished(0));
  ops[0]->throwErrorIfFailed();
  for (int i = 1; i <= kQueued; ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(ops[i].get(), listeners[i]->op());
    EXPECT_TRUE(ops[i]->hasFinished());
    expectError<CError>(*ops[i], [](CError const& e) {
      EXPECT_EQ(typeid(CError), typeid(e));
      EXPECT_EQ(kAbort, e.getMessage().toUTF8());
      EXPECT_EQ("", e.getErrorCodeDomain().toUTF8());
      EXPECT_EQ(-1, e.getErrorCode());
    });
  }
}

TEST_F(CBackgroundOpThreadTest, AWorkerThatNeverRanAbortsItsJobsWhenDestroyed) {
  P<CListener> listener = newP<CListener>(m_journal, "job");
  P<IBackgroundOp> op;
  {
    P<CBackgroundOpThread> worker = newP<CBackgroundOpThread>();
    op = worker->addDeleteFileJob(m_fs.get(), uri("x"), listener.get());
  }
  EXPECT_TRUE(op->hasFinished());
  EXPECT_EQ(std::vector<std::string>{std::string("job:") + kAbort}, m_journal.lines());
  EXPECT_TRUE(m_fs->calls().empty());
}

TEST_F(CBackgroundOpThreadTest, AJobAddedAfterTheWorkerStoppedIsAbortedAtOnceAndARestartRunsJobsAgain) {
  m_worker->start();
  m_worker->stop(false);
  P<CListener> late = newP<CListener>(m_journal, "late");
  P<IBackgroundOp> op = m_worker->addDeleteFileJob(m_fs.get(), uri("x"), late.get());
  EXPECT_TRUE(op->hasFinished());
  expectError<CError>(*op, [](CError const& e) { EXPECT_EQ(kAbort, e.getMessage().toUTF8()); });
  EXPECT_EQ(op.get(), late->op());

  m_worker->start();
  P<CListener> again = newP<CListener>(m_journal, "again");
  EXPECT_TRUE(m_worker->addDeleteFileJob(m_fs.get(), uri("y"), again.get())->waitFinished(kLongWait));
  EXPECT_EQ((std::vector<std::string>{std::string("late:") + kAbort, "again:ok"}), m_journal.waitFor(2));
  EXPECT_EQ(std::vector<std::string>{"deleteFile(mem:///y,false)"}, m_fs->calls());
}

TEST_F(CBackgroundOpThreadTest, AFinishedJobDropsWhatItWorkedOn) {
  P<Buffer> data = pattern(10);
  P<CBufferStream> source = streamOf(data);
  P<CListener> listener = newP<CListener>(m_journal, "store");
  auto const fsRefs = m_fs->getRefCountForDebugging();
  auto const sourceRefs = source->getRefCountForDebugging();
  auto const listenerRefs = listener->getRefCountForDebugging();
  P<IBackgroundOp> op = m_worker->addStoreJob(m_fs.get(), uri("s"), 10, source.get(), true, listener.get());
  EXPECT_LT(fsRefs, m_fs->getRefCountForDebugging());
  EXPECT_LT(sourceRefs, source->getRefCountForDebugging());
  EXPECT_LT(listenerRefs, listener->getRefCountForDebugging());
  m_worker->start();
  ASSERT_TRUE(op->waitFinished(kLongWait));
  EXPECT_EQ(fsRefs, m_fs->getRefCountForDebugging());  // dropped before the done signal
  EXPECT_EQ(sourceRefs, source->getRefCountForDebugging());
  m_worker->stop(true);
  EXPECT_EQ(listenerRefs, listener->getRefCountForDebugging());
}

TEST_F(CBackgroundOpThreadTest, ManyProducersLoseNothingAndKeepTheirOwnOrder) {
  constexpr int kProducers = 4;
  constexpr int kJobs = 250;
  m_worker->start();
  std::vector<std::vector<P<IBackgroundOp>>> ops(kProducers);
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&, p] {
      for (int i = 0; i < kJobs; ++i) {
        ops[p].push_back(m_worker->addCreateFolderJob(m_fs.get(), uri("p" + std::to_string(p)), i, nullptr));
      }
    });
  }
  for (auto& t : producers) t.join();
  for (auto const& list : ops)
    for (auto const& op : list) ASSERT_TRUE(op->waitFinished(kLongWait));
  std::vector<int> next(kProducers, 0);
  std::vector<std::string> const calls = m_fs->calls();
  ASSERT_EQ(static_cast<std::size_t>(kProducers * kJobs), calls.size());
  for (std::string const& call : calls) {
    int const p = call[std::string("createFolder(mem:///p").size()] - '0';
    ASSERT_TRUE(p >= 0 && p < kProducers) << call;
    EXPECT_EQ("createFolder(mem:///p" + std::to_string(p) + "," + std::to_string(next[p]++) + ")", call);
  }
}

TEST_F(CBackgroundOpThreadTest, StoreJobCopiesExactlyTheRequestedBytesAndFailsOnAShortSource) {
  struct Case {
    long long length;      // asked for (-1: all)
    long long sourceSize;  // available
    bool overwrite;
  };
  Case const cases[] = {
      {0, 5, true}, {1, 1, false}, {65535, 65540, true}, {65536, 65536, true},
      {65537, 70000, false}, {200001, 200001, true}, {-1, 0, true}, {-1, 131075, false},
  };
  m_worker->start();
  P<Buffer> const shortData = pattern(4);
  P<CBufferStream> const shortSource = streamOf(shortData);
  P<IBackgroundOp> const shortOp =
      m_worker->addStoreJob(m_fs.get(), uri("short"), 10, shortSource.get(), true, nullptr);
  ASSERT_TRUE(shortOp->waitFinished(kLongWait));
  expectError<CIOError>(*shortOp, [](CIOError const& e) { EXPECT_EQ(CIOError::kUnexpectedEOF, e.getErrorCode()); });
  int n = 0;
  for (Case const& c : cases) {
    std::string const name = "f" + std::to_string(n++);
    SCOPED_TRACE(name);
    P<Buffer> data = pattern(c.sourceSize);
    P<CBufferStream> source = streamOf(data);
    P<IBackgroundOp> op = m_worker->addStoreJob(m_fs.get(), uri(name), c.length, source.get(), c.overwrite, nullptr);
    ASSERT_TRUE(op->waitFinished(kLongWait));
    op->throwErrorIfFailed();
    long long const expected = c.length < 0 ? c.sourceSize : c.length;
    P<Buffer> written = m_fs->written(uri(name));
    ASSERT_TRUE(written);
    ASSERT_EQ(expected, written->getSize());
    if (expected > 0) {
      EXPECT_EQ(0, std::memcmp(data->getData(), written->getData(), static_cast<std::size_t>(expected)));
    }
    EXPECT_EQ(expected, source->getPosition());  // nothing read beyond the length
    // FlagCreate|FlagTruncate = 3 when overwriting, FlagCreate|FlagFailIfExists = 5 otherwise.
    EXPECT_EQ("createStream(mem:///" + name + ",access2," + (c.overwrite ? "flags3" : "flags5") + ")",
              m_fs->calls().back());
  }
}

TEST_F(CBackgroundOpThreadTest, BadArgumentsAreRefusedAtOnce) {
  P<CBufferStream> source = newP<CBufferStream>();
  struct Case {
    char const* message;
    std::function<void()> call;
  };
  std::vector<Case> const cases = {
      {"CStoreJob constructor': the file system is null.",
       [&] { (void)m_worker->addStoreJob(nullptr, uri("a"), 1, source.get(), true, nullptr); }},
      {"CStoreJob constructor': the source stream is null.",
       [&] { (void)m_worker->addStoreJob(m_fs.get(), uri("a"), 1, nullptr, true, nullptr); }},
      {"CStoreJob constructor': the length is below -1.",
       [&] { (void)m_worker->addStoreJob(m_fs.get(), uri("a"), -2, source.get(), true, nullptr); }},
      {"CMoveFileJob constructor': the file system is null.",
       [&] { (void)m_worker->addMoveFileJob(nullptr, uri("a"), uri("b"), true, nullptr); }},
      {"CCreateFolderJob constructor': the file system is null.",
       [&] { (void)m_worker->addCreateFolderJob(nullptr, uri("a"), 0, nullptr); }},
      {"CDeleteFileJob constructor': the file system is null.",
       [&] { (void)m_worker->addDeleteFileJob(nullptr, uri("a"), nullptr); }},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.message);
    try {
      c.call();
      ADD_FAILURE() << "nothing thrown";
    } catch (CInvalidArgError const& e) {
      EXPECT_EQ(std::string("Invalid argument passed to 'CBackgroundOpThread::") + c.message,
                e.getMessage().toUTF8());
    }
  }
  // Nothing was queued: a stop finds no job to abort.
  m_worker->start();
  m_worker->stop(true);
  EXPECT_TRUE(m_fs->calls().empty());
}

// A job of the test's own, queued through the protected addJob.
class CProbeJob : public CBackgroundOpThread::CJob {
public:
  explicit CProbeJob(IDoneListener* listener) : CJob(listener) {}
  void run(void* context, CBackgroundOpThread* thread) override {
    m_context = context;
    m_thread = thread;
  }
  void* m_context = nullptr;
  CBackgroundOpThread* m_thread = nullptr;
  int m_drops = 0;

protected:
  void dropReferences() noexcept override { ++m_drops; }
};

class CProbeWorker : public CBackgroundOpThread {
public:
  using CBackgroundOpThread::CBackgroundOpThread;
  using CBackgroundOpThread::addJob;
};

TEST_F(CBackgroundOpThreadTest, JobsRunWithTheContextAndTheWorker) {
  int context = 0;
  P<CProbeWorker> worker = newP<CProbeWorker>(&context);
  P<CProbeJob> job = newP<CProbeJob>(nullptr);
  worker->start();
  P<IBackgroundOp> op = worker->addJob(job);
  EXPECT_EQ(job.get(), op.get());
  ASSERT_TRUE(op->waitFinished(kLongWait));
  worker->stop(true);
  EXPECT_EQ(&context, job->m_context);
  EXPECT_EQ(worker.get(), job->m_thread);
  EXPECT_EQ(1, job->m_drops);
}

TEST_F(CBackgroundOpThreadTest, ASecondFinishReplacesTheErrorButTellsNobody) {
  P<CListener> listener = newP<CListener>(m_journal, "job");
  P<CProbeJob> job = newP<CProbeJob>(listener.get());
  CError const first(u"first");
  job->finish(&first);
  job->finish(nullptr);  // now a success, and the listener is not told again
  EXPECT_EQ(std::vector<std::string>{"job:first"}, m_journal.lines());
  EXPECT_EQ(2, job->m_drops);
  EXPECT_TRUE(job->hasFinished());
  job->throwErrorIfFailed();
}

std::vector<std::string> g_logged;
void captureLog(CError const& error, String const& summary) {
  g_logged.push_back(summary.toUTF8() + " " + error.getMessage().toUTF8());
}

TEST_F(CBackgroundOpThreadTest, AThrowingListenerIsLoggedAndTheWorkerGoesOn) {
  class CThrowingListener : public CBase, public IDoneListener {
  public:
    void onBackgroundOpDone(IBackgroundOp*, CError const*) override { throw std::runtime_error("listener broke"); }
  };
  g_logged.clear();
  ErrorLogHook const previous = setErrorLogHook(&captureLog);
  P<CThrowingListener> thrower = newP<CThrowingListener>();
  P<CListener> after = newP<CListener>(m_journal, "after");
  (void)m_worker->addDeleteFileJob(m_fs.get(), uri("a"), thrower.get());
  (void)m_worker->addDeleteFileJob(m_fs.get(), uri("b"), after.get());
  m_worker->start();
  EXPECT_EQ(std::vector<std::string>{"after:ok"}, m_journal.waitFor(1));
  m_worker->stop(true);
  setErrorLogHook(previous);
  EXPECT_EQ(std::vector<std::string>{"CBackgroundOpThread: a done listener threw an exception. listener broke"},
            g_logged);
}

}  // namespace
}  // namespace qo

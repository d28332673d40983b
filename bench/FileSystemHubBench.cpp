// File-system hub routing and the background-operation worker.
//
// - A call through CFileSystemHub (scheme lookup under the hub's mutex, a P
//   copy of the file system, the forwarded virtual call) against the same
//   call made on the file system directly; the hub holds five schemes. The
//   called operation does almost nothing, so the ratio is the hub's whole
//   overhead. Also on two threads, which share the hub's mutex.
// - A job round trip through CBackgroundOpThread (queue, wake the worker,
//   run, finish, waitFinished) against the same hand-off to a minimal
//   std::thread worker (a std::deque of tasks under a std::mutex, one
//   condition variable each way).
#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "BenchMain.h"
#include "qo/fs/CDelegatingFileSystemBase.h"
#include "qo/fs/CFileSystemHub.h"
#include "qo/thread/CBackgroundOpThread.h"

namespace {

// Answers the two operations the benchmarks call; the others would route to
// getFileSystem(), which refuses.
class CCheapFileSystem : public qo::CDelegatingFileSystemBase {
public:
  bool fileExists(qo::CURI const&) override { return m_count.fetch_add(1, std::memory_order_relaxed) >= 0; }
  void createFolder(qo::CURI const&, int) override { m_count.fetch_add(1, std::memory_order_relaxed); }

protected:
  qo::P<qo::IFileSystem> getFileSystem(qo::CURI const&) override { throw std::logic_error("not routed"); }

private:
  std::atomic<long long> m_count{0};
};

qo::P<CCheapFileSystem> g_fs;
qo::P<qo::CFileSystemHub> g_hub;

void setUp() {
  g_fs = qo::newP<CCheapFileSystem>();
  g_hub = qo::newP<qo::CFileSystemHub>();
  for (char16_t const* scheme : {u"ftp", u"http", u"proxy", u"smb"}) {
    g_hub->registerFileSystem(scheme, qo::newP<CCheapFileSystem>().get());
  }
  g_hub->registerFileSystem(u"file", g_fs.get());
}

void tearDown() {
  g_hub = qo::nil;
  g_fs = qo::nil;
}

void BM_HubCall(benchmark::State& state) {
  qo::CURI const uri(u"file:///C:/data/file.txt");
  qo::IFileSystem* const hub = g_hub.get();
  for (auto _ : state) benchmark::DoNotOptimize(hub->fileExists(uri));
}
BENCHMARK(BM_HubCall)->Threads(1)->Threads(2)->UseRealTime();

void BM_DirectCall(benchmark::State& state) {
  qo::CURI const uri(u"file:///C:/data/file.txt");
  qo::IFileSystem* const fs = g_fs.get();
  for (auto _ : state) benchmark::DoNotOptimize(fs->fileExists(uri));
}
BENCHMARK(BM_DirectCall)->Threads(1)->Threads(2)->UseRealTime();

void BM_WorkerRoundTrip(benchmark::State& state) {
  qo::P<qo::CBackgroundOpThread> worker = qo::newP<qo::CBackgroundOpThread>();
  worker->start();
  qo::CURI const uri(u"file:///C:/data/folder");
  for (auto _ : state) {
    qo::P<qo::IBackgroundOp> op = worker->addCreateFolderJob(g_fs.get(), uri, 0, nullptr);
    benchmark::DoNotOptimize(op->waitFinished(-1));
  }
  worker->stop(true);
}
BENCHMARK(BM_WorkerRoundTrip)->UseRealTime();

// The baseline: the least a thread hand-off with a result needs.
class MinimalWorker {
public:
  MinimalWorker() : m_thread([this] { loop(); }) {}
  ~MinimalWorker() {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_stop = true;
    }
    m_work.notify_one();
    m_thread.join();
  }
  void runAndWait(std::function<void()> task) {
    bool done = false;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_tasks.push_back(Task{std::move(task), &done});
    m_work.notify_one();
    m_finished.wait(lock, [&] { return done; });
  }

private:
  void loop() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_work.wait(lock, [&] { return m_stop || !m_tasks.empty(); });
      if (m_tasks.empty()) return;
      Task task = std::move(m_tasks.front());
      m_tasks.pop_front();
      lock.unlock();
      task.run();
      lock.lock();
      *task.done = true;
      m_finished.notify_all();
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_work;
  std::condition_variable m_finished;
  struct Task {
    std::function<void()> run;
    bool* done;
  };
  std::deque<Task> m_tasks;
  bool m_stop = false;
  std::thread m_thread;
};

void BM_StdThreadRoundTrip(benchmark::State& state) {
  MinimalWorker worker;
  qo::CURI const uri(u"file:///C:/data/folder");
  for (auto _ : state) worker.runAndWait([&] { g_fs->createFolder(uri, 0); });
}
BENCHMARK(BM_StdThreadRoundTrip)->UseRealTime();

}  // namespace

QO_BENCH_RATIO("hub call / direct call (1 thread)", "BM_HubCall/1", "BM_DirectCall/1");
QO_BENCH_RATIO("hub call / direct call (2 threads)", "BM_HubCall/2", "BM_DirectCall/2");
QO_BENCH_RATIO("CBackgroundOpThread round trip / std::thread hand-off", "BM_WorkerRoundTrip/1",
               "BM_StdThreadRoundTrip/1");
QO_BENCH_SETUP(setUp, tearDown);

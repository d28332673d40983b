// Locks and signals against their standard counterparts.
//
// - CMutex lock + unlock with no other thread interested, against
//   std::recursive_mutex (CMutex is recursive too).
// - A ping-pong between two threads through two CSignals (set, wait, reset
//   on each side), against the same hand-off through one std::mutex, one
//   std::condition_variable and a turn flag. One iteration is one round trip.
#include <benchmark/benchmark.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "BenchMain.h"
#include "qo/thread/CMutex.h"
#include "qo/thread/CSignal.h"

namespace {

void BM_CMutexLockUnlock(benchmark::State& state) {
  qo::CMutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_CMutexLockUnlock);

void BM_StdRecursiveMutexLockUnlock(benchmark::State& state) {
  std::recursive_mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    mutex.unlock();
  }
}
BENCHMARK(BM_StdRecursiveMutexLockUnlock);

QO_BENCH_RATIO("CMutex lock+unlock / std::recursive_mutex", "BM_CMutexLockUnlock/1",
               "BM_StdRecursiveMutexLockUnlock/1");

void BM_CSignalPingPong(benchmark::State& state) {
  qo::CSignal ping;
  qo::CSignal pong;
  std::atomic<bool> running{true};
  std::thread partner([&] {
    while (true) {
      if (!ping.wait(-1)) continue;
      ping.reset();
      if (!running.load()) break;
      pong.set();
    }
  });
  for (auto _ : state) {
    ping.set();
    if (pong.wait(-1)) pong.reset();
  }
  running = false;
  ping.set();
  partner.join();
}
BENCHMARK(BM_CSignalPingPong)->UseRealTime();

void BM_StdConditionVariablePingPong(benchmark::State& state) {
  std::mutex mutex;
  std::condition_variable changed;
  int turn = 1;  // 0: the partner's turn; 1: the benchmark thread's turn
  bool running = true;
  std::thread partner([&] {
    std::unique_lock<std::mutex> lock(mutex);
    while (true) {
      changed.wait(lock, [&] { return turn == 0 || !running; });
      if (!running) break;
      turn = 1;
      changed.notify_all();
    }
  });
  for (auto _ : state) {
    std::unique_lock<std::mutex> lock(mutex);
    turn = 0;
    changed.notify_all();
    changed.wait(lock, [&] { return turn == 1; });
  }
  {
    std::lock_guard<std::mutex> lock(mutex);
    running = false;
  }
  changed.notify_all();
  partner.join();
}
BENCHMARK(BM_StdConditionVariablePingPong)->UseRealTime();

QO_BENCH_RATIO("CSignal ping-pong / condition_variable ping-pong", "BM_CSignalPingPong/1",
               "BM_StdConditionVariablePingPong/1");

}  // namespace

// A signal from raise() to a listener: CSystemSignalReceiver (handler ->
// pipe -> "qo.globalMessages" thread -> listener list) against the bare
// self-pipe trick (handler -> pipe -> a std::thread), each waking the
// raising thread when the notice arrived (POSIX builds only).
#include <benchmark/benchmark.h>

#ifndef _WIN32

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "BenchMain.h"
#include "qo/sys/CSystemSignalReceiver.h"

namespace {

// Wakes the raising thread.
struct Doorbell {
  std::mutex mutex;
  std::condition_variable rung;
  long long count = 0;
  void ring() {
    {
      std::lock_guard<std::mutex> lock(mutex);
      ++count;
    }
    rung.notify_one();
  }
  void await(long long n) {
    std::unique_lock<std::mutex> lock(mutex);
    rung.wait(lock, [&] { return count >= n; });
  }
};

class CBellListener : public qo::CBase, public qo::CSystemSignalReceiver::IListener {
public:
  explicit CBellListener(Doorbell& bell) : m_bell(bell) {}
  void onSystemSignal(qo::CSystemSignalReceiver::Signal) override { m_bell.ring(); }

private:
  Doorbell& m_bell;
};

void BM_SignalReceiverRaiseToListener(benchmark::State& state) {
  Doorbell bell;
  qo::P<CBellListener> listener = qo::newP<CBellListener>(bell);
  qo::CSystemSignalReceiver::get()->addListener(listener.get());
  long long n = 0;
  for (auto _ : state) {
    raise(SIGHUP);
    bell.await(++n);
  }
  qo::CSystemSignalReceiver::get()->removeListener(listener.get());
}
BENCHMARK(BM_SignalReceiverRaiseToListener)->UseRealTime();

std::atomic<int> g_rawPipe{-1};

extern "C" void rawHandler(int sig) {
  int const saved = errno;
  unsigned char byte = static_cast<unsigned char>(sig);
  ssize_t ignored = write(g_rawPipe.load(), &byte, 1);
  (void)ignored;
  errno = saved;
}

void BM_RawSelfPipeRaiseToThread(benchmark::State& state) {
  int fds[2];
  if (pipe2(fds, O_CLOEXEC) != 0) {
    state.SkipWithError("pipe2 failed");
    return;
  }
  g_rawPipe.store(fds[1]);
  struct sigaction action{}, previous{};
  action.sa_handler = &rawHandler;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  sigaction(SIGUSR2, &action, &previous);
  Doorbell bell;
  std::thread reader([&] {
    unsigned char byte = 0;
    while (read(fds[0], &byte, 1) == 1 && byte != 0) bell.ring();
  });
  long long n = 0;
  for (auto _ : state) {
    raise(SIGUSR2);
    bell.await(++n);
  }
  unsigned char stop = 0;
  ssize_t ignored = write(fds[1], &stop, 1);
  (void)ignored;
  reader.join();
  sigaction(SIGUSR2, &previous, nullptr);
  close(fds[0]);
  close(fds[1]);
}
BENCHMARK(BM_RawSelfPipeRaiseToThread)->UseRealTime();

QO_BENCH_RATIO("CSystemSignalReceiver raise->listener / raw self-pipe raise->thread",
               "BM_SignalReceiverRaiseToListener/1", "BM_RawSelfPipeRaiseToThread/1");

}  // namespace

#endif  // _WIN32

// Child processes against the bare POSIX calls (POSIX builds only).
//
// - Start and wait for /bin/true: CProcess (posix_spawn, pidfd, pump-free
//   since nothing is redirected) against posix_spawn + waitpid.
// - 16 MiB through /bin/cat: CProcess with its stdin and stdout pumps from
//   and into memory streams, against two pipes driven by a writer thread
//   and a read loop. One iteration is one whole run of cat.
#include <benchmark/benchmark.h>

#ifndef _WIN32

#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "BenchMain.h"
#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"
#include "qo/sys/CProcess.h"

extern char** environ;

namespace {

constexpr std::size_t kPipeBytes = 16 * 1024 * 1024;

void BM_CProcessStartWait(benchmark::State& state) {
  for (auto _ : state) {
    qo::P<qo::CProcess> p = qo::newP<qo::CProcess>(u"/bin/true");
    p->start();
    p->wait(-1);
    benchmark::DoNotOptimize(p->getExitCode());
  }
}
BENCHMARK(BM_CProcessStartWait)->UseRealTime();

void BM_PosixSpawnWait(benchmark::State& state) {
  char arg0[] = "/bin/true";
  char* argv[] = {arg0, nullptr};
  for (auto _ : state) {
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ) != 0) state.SkipWithError("posix_spawn failed");
    int status = 0;
    waitpid(pid, &status, 0);
    benchmark::DoNotOptimize(status);
  }
}
BENCHMARK(BM_PosixSpawnWait)->UseRealTime();

QO_BENCH_RATIO("CProcess start+wait / posix_spawn+waitpid", "BM_CProcessStartWait/1", "BM_PosixSpawnWait/1");

void BM_CProcessPipeThroughCat(benchmark::State& state) {
  using Buffer = qo::TBuffer<unsigned char>;
  qo::P<Buffer> input = qo::newP<Buffer>(static_cast<long long>(kPipeBytes));
  for (auto _ : state) {
    qo::P<Buffer> output = qo::newP<Buffer>();
    output->reserve(static_cast<long long>(kPipeBytes));
    qo::P<qo::CProcess> p = qo::newP<qo::CProcess>(u"/bin/cat");
    p->setStdin(qo::newP<qo::CBufferStream>(static_cast<Buffer const*>(input.get())));
    p->setStdout(qo::newP<qo::CBufferStream>(output.get()));
    p->start();
    p->wait(-1);
    if (output->getSize() != static_cast<long long>(kPipeBytes)) state.SkipWithError("lost bytes");
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(kPipeBytes));
}
BENCHMARK(BM_CProcessPipeThroughCat)->UseRealTime();

void BM_RawPipesThroughCat(benchmark::State& state) {
  std::vector<char> input(kPipeBytes);
  std::vector<char> output(kPipeBytes);
  char arg0[] = "/bin/cat";
  char* argv[] = {arg0, nullptr};
  for (auto _ : state) {
    int in[2], out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) state.SkipWithError("pipe2 failed");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    pid_t pid = -1;
    posix_spawn(&pid, argv[0], &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    std::thread writer([&] {
      std::size_t done = 0;
      while (done < input.size()) {
        ssize_t const put = write(in[1], input.data() + done, input.size() - done);
        if (put <= 0) break;
        done += static_cast<std::size_t>(put);
      }
      close(in[1]);
    });
    std::size_t got = 0;
    while (got < output.size()) {
      ssize_t const n = read(out[0], output.data() + got, 64 * 1024);
      if (n <= 0) break;
      got += static_cast<std::size_t>(n);
    }
    writer.join();
    close(out[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (got != kPipeBytes) state.SkipWithError("lost bytes");
  }
  state.SetBytesProcessed(static_cast<long long>(state.iterations()) * static_cast<long long>(kPipeBytes));
}
BENCHMARK(BM_RawPipesThroughCat)->UseRealTime();

QO_BENCH_RATIO("CProcess 16 MiB through cat / raw pipes", "BM_CProcessPipeThroughCat/1", "BM_RawPipesThroughCat/1");

}  // namespace

#endif  // _WIN32

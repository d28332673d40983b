// The retrying file system's cost when nothing fails: getFileInfo of a real
// file through CRetryingFileSystem (the retry loop and its try block around
// the forwarded call) against the same call on CLocalFileSystem directly.
// A failure path is not timed: its waits are the caller's backoff.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchMain.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/fs/CRetryingFileSystem.h"
#include "qo/fs/LocalFile.h"

namespace {

std::filesystem::path g_file;
qo::P<qo::CLocalFileSystem> g_local;
qo::P<qo::CRetryingFileSystem> g_retrying;

void setUp() {
  g_file = std::filesystem::temp_directory_path() / ("qo-retry-bench-" + std::to_string(std::rand()) + ".txt");
  std::ofstream(g_file) << "x";
  g_local = qo::newP<qo::CLocalFileSystem>();
  g_retrying = qo::newP<qo::CRetryingFileSystem>(g_local, 5, 50, 2000);
}

void tearDown() {
  g_retrying = qo::nil;
  g_local = qo::nil;
  std::error_code ignored;
  std::filesystem::remove(g_file, ignored);
}

void run(benchmark::State& state, qo::IFileSystem* fs) {
  qo::CURI const uri = qo::localFileURI(qo::String(g_file.u16string()));
  for (auto _ : state) benchmark::DoNotOptimize(fs->getFileInfo(uri, false));
}

void BM_RetryingGetFileInfo(benchmark::State& state) { run(state, g_retrying.get()); }
BENCHMARK(BM_RetryingGetFileInfo);

void BM_LocalGetFileInfo(benchmark::State& state) { run(state, g_local.get()); }
BENCHMARK(BM_LocalGetFileInfo);

}  // namespace

QO_BENCH_RATIO("retrying getFileInfo / local getFileInfo", "BM_RetryingGetFileInfo/1", "BM_LocalGetFileInfo/1");
QO_BENCH_SETUP(setUp, tearDown);

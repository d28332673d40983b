// Stream wrappers.
//
// - Small writes (1 byte and 100 bytes, 1 MiB per iteration) through
//   COptimizingIOStreamWrapper to a CLocalFileStream against fwrite to a
//   FILE* with its default buffer: open, write, close on both sides. The
//   goal is a ratio <= 1.0.
// - The same 100-byte writes through the wrapper to a 4096-aligned stream:
//   an unbuffered (FlagNoBuffering) local file where the OS offers one
//   (counter noBuffering = 1), else a buffered file under the same enforced
//   rules (noBuffering = 0); compared with the fwrite side as well.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchMain.h"
#include "qo/core/CError.h"
#include "qo/core/CTime.h"
#include "qo/fs/CLocalFileStream.h"
#include "qo/stream/CEnforcingIOStreamWrapper.h"
#include "qo/stream/COptimizingIOStreamWrapper.h"

namespace {

namespace stdfs = std::filesystem;

constexpr int kTotal = 1 << 20;

stdfs::path g_dir;

std::vector<unsigned char> const& payload() {
  static std::vector<unsigned char> const bytes = [] {
    std::vector<unsigned char> v(kTotal);
    for (int i = 0; i < kTotal; ++i) v[static_cast<std::size_t>(i)] = static_cast<unsigned char>(i * 13);
    return v;
  }();
  return bytes;
}

qo::String nativePath(char const* name) { return qo::String((g_dir / name).u16string()); }

template <int kChunk>
void BM_OptimizingWrapperWrite(benchmark::State& state) {
  qo::String const path = nativePath("optimizing.bin");
  unsigned char const* const from = payload().data();
  for (auto _ : state) {
    qo::P<qo::IIOStream> file = qo::newP<qo::CLocalFileStream>(
        path, qo::IIOStream::AccessReadWrite, qo::TFlags<qo::IIOStream::Flags>{qo::IIOStream::FlagCreate,
                                                                               qo::IIOStream::FlagTruncate});
    qo::P<qo::IIOStream> fast = qo::newP<qo::COptimizingIOStreamWrapper>(file.get());
    for (int done = 0; done + kChunk <= kTotal; done += kChunk) fast->write(from + done, kChunk);
    fast->close();
  }
  state.SetBytesProcessed(state.iterations() * (kTotal / kChunk * kChunk));
}

template <int kChunk>
void BM_FwriteWrite(benchmark::State& state) {
  std::string const path = (g_dir / "fwrite.bin").string();
  unsigned char const* const from = payload().data();
  for (auto _ : state) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
      state.SkipWithError("fopen failed");
      return;
    }
    for (int done = 0; done + kChunk <= kTotal; done += kChunk) std::fwrite(from + done, 1, kChunk, file);
    std::fclose(file);
  }
  state.SetBytesProcessed(state.iterations() * (kTotal / kChunk * kChunk));
}

void BM_OptimizingWrapperWriteUnbuffered(benchmark::State& state) {
  qo::String const path = nativePath("unbuffered.bin");
  unsigned char const* const from = payload().data();
  for (auto _ : state) {
    qo::P<qo::IIOStream> file;
    qo::TFlags<qo::IIOStream::Flags> flags{qo::IIOStream::FlagCreate, qo::IIOStream::FlagTruncate};
    try {
      qo::TFlags<qo::IIOStream::Flags> unbuffered = flags;
      unbuffered.set(qo::IIOStream::FlagNoBuffering);
      file = qo::newP<qo::CLocalFileStream>(path, qo::IIOStream::AccessReadWrite, unbuffered);
      state.counters["noBuffering"] = 1;
    } catch (qo::CError const&) {
      // Not offered here: the same 4096-byte rules on a buffered file.
      file = qo::newP<qo::CLocalFileStream>(path, qo::IIOStream::AccessReadWrite, flags);
      state.counters["noBuffering"] = 0;
    }
    // The device's rules, enforced, so that a stray call would fail here.
    qo::P<qo::IIOStream> aligned = qo::newP<qo::CEnforcingIOStreamWrapper>(file.get(), 4096, 4096, 65536);
    qo::P<qo::IIOStream> fast = qo::newP<qo::COptimizingIOStreamWrapper>(aligned.get());
    for (int done = 0; done + 100 <= kTotal; done += 100) fast->write(from + done, 100);
    fast->close();
  }
  state.SetBytesProcessed(state.iterations() * (kTotal / 100 * 100));
}

BENCHMARK_TEMPLATE(BM_OptimizingWrapperWrite, 1);
BENCHMARK_TEMPLATE(BM_FwriteWrite, 1);
BENCHMARK_TEMPLATE(BM_OptimizingWrapperWrite, 100);
BENCHMARK_TEMPLATE(BM_FwriteWrite, 100);
BENCHMARK(BM_OptimizingWrapperWriteUnbuffered);

void setUpStreamWrapperBench() {
  g_dir = stdfs::temp_directory_path() /
          ("qo-bench-wrappers-" + std::to_string(qo::CTime::now().getMicros() % 1000000007));
  stdfs::create_directories(g_dir);
}

void tearDownStreamWrapperBench() {
  std::error_code ignored;
  stdfs::remove_all(g_dir, ignored);
}

}  // namespace

QO_BENCH_RATIO("COptimizingIOStreamWrapper 1-byte writes to a file / fwrite", "BM_OptimizingWrapperWrite<1>/1",
               "BM_FwriteWrite<1>/1");
QO_BENCH_RATIO("COptimizingIOStreamWrapper 100-byte writes to a file / fwrite", "BM_OptimizingWrapperWrite<100>/1",
               "BM_FwriteWrite<100>/1");
QO_BENCH_RATIO("COptimizingIOStreamWrapper 100-byte writes to a 4096-aligned stream / fwrite",
               "BM_OptimizingWrapperWriteUnbuffered/1", "BM_FwriteWrite<100>/1");
QO_BENCH_SETUP(setUpStreamWrapperBench, tearDownStreamWrapperBench);

// CVolumeStream against the plain system calls it stands on.
//
// Sequential unbuffered read of a 256 MiB disk image in 1 MiB transfers (the
// stream's best transfer size): CVolumeStream::open (with its enforcing
// wrapper, which checks every call's alignment) against a loop of pread on
// an O_DIRECT descriptor into the same kind of aligned buffer, and against
// `dd iflag=direct bs=1M` run through std::system (which adds a process
// start). Every iteration opens the image anew; nothing is cached, since
// both sides bypass the page cache. The image is written once, outside the
// timing and flushed to the disk, in the current folder (a disk, not tmpfs, in the usual build
// folder). Linux only: the Windows build has no O_DIRECT peer here.
#include <benchmark/benchmark.h>

#ifndef _WIN32
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "BenchMain.h"
#include "qo/sys/CVolumeStream.h"

namespace {

namespace stdfs = std::filesystem;

constexpr long long kImageBytes = 256LL * 1024 * 1024;
constexpr int kBlock = 1 << 20;

stdfs::path g_image;

// kBlock bytes at an address aligned for every sector size in use.
struct AlignedBlock {
  std::vector<unsigned char> raw = std::vector<unsigned char>(kBlock + 65536);
  unsigned char* data() {
    auto const address = reinterpret_cast<std::uintptr_t>(raw.data());
    return raw.data() + (65536 - address % 65536) % 65536;
  }
};

void setUpVolumeStreamBench() {
  g_image = stdfs::current_path() / ("qo-volume-bench-" + std::to_string(getpid()) + ".img");
  std::ofstream out(g_image, std::ios::binary);
  std::vector<char> chunk(kBlock);
  for (long long written = 0; written < kImageBytes; written += kBlock) {
    for (std::size_t i = 0; i < chunk.size(); i += 4096) chunk[i] = static_cast<char>(written >> 20);
    out.write(chunk.data(), kBlock);
  }
  out.close();
  // On the disk before timing: write-back running meanwhile would slow
  // whichever side comes first.
  int fd = ::open(g_image.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    ::fsync(fd);
    ::close(fd);
  }
}

void tearDownVolumeStreamBench() {
  std::error_code ignored;
  stdfs::remove(g_image, ignored);
}

void BM_VolumeStreamRead(benchmark::State& state) {
  AlignedBlock block;
  for (auto _ : state) {
    qo::P<qo::IAlignedInStream> in = qo::CVolumeStream::open(qo::String::fromUTF8(g_image.string()));
    long long total = 0;
    while (int n = in->readLax(block.data(), kBlock)) total += n;
    if (total != kImageBytes) state.SkipWithError("short read");
    benchmark::DoNotOptimize(block.data()[0]);
  }
  state.SetBytesProcessed(state.iterations() * kImageBytes);
}
BENCHMARK(BM_VolumeStreamRead)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ODirectPread(benchmark::State& state) {
  AlignedBlock block;
  for (auto _ : state) {
    int fd = ::open(g_image.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECT);
    if (fd < 0) {
      state.SkipWithError("O_DIRECT refused");
      break;
    }
    long long total = 0;
    for (;;) {
      ssize_t n = ::pread(fd, block.data(), kBlock, static_cast<off_t>(total));
      if (n <= 0) break;
      total += n;
    }
    ::close(fd);
    if (total != kImageBytes) state.SkipWithError("short read");
    benchmark::DoNotOptimize(block.data()[0]);
  }
  state.SetBytesProcessed(state.iterations() * kImageBytes);
}
BENCHMARK(BM_ODirectPread)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_DdDirect(benchmark::State& state) {
  std::string const command = "dd if='" + g_image.string() + "' of=/dev/null bs=1M iflag=direct status=none";
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError("dd failed");
  }
  state.SetBytesProcessed(state.iterations() * kImageBytes);
}
BENCHMARK(BM_DdDirect)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace

QO_BENCH_RATIO("CVolumeStream 256 MiB read / O_DIRECT pread loop", "BM_VolumeStreamRead/1", "BM_ODirectPread/1");
QO_BENCH_RATIO("CVolumeStream 256 MiB read / dd iflag=direct bs=1M", "BM_VolumeStreamRead/1", "BM_DdDirect/1");
QO_BENCH_SETUP(setUpVolumeStreamBench, tearDownVolumeStreamBench);
#endif

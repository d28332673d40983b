// CLocalFileSystem against the standard library and the shell's tools.
//
// Background store: backgroundStore of a 256 MiB memory stream to a local
// file (queued, copied in 64 KiB chunks, flushed to the medium, waited for)
// against `cp` of a 256 MiB file to the same folder, run through
// std::system and timed the same way (wall clock per iteration). The store
// ends with a flush that puts the data on the medium, which cp does not do,
// so cp is measured a second time followed by `sync <file>` (the same
// durability). The source file of cp is written once, outside the timing, and
// stays in the page cache; the memory stream needs no reading at all.
//
// Folder listing with per-entry facts: CLocalFileSystem::getFolderContents
// (every entry with kind, size, times, identity) against
// std::filesystem::directory_iterator on the same folder of 10,000 files.
//
// The standard side is measured twice: once asking what the qo entries
// carry (kind without following links, size, last write time: symlink_status,
// file_size and last_write_time, each a call of its own on POSIX), once with
// the one symlink_status() call per entry, its cheapest listing that looks
// at each entry at all. The folder is made once, outside the timing; the page
// cache is warm for both sides. One iteration lists the whole folder.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchMain.h"
#include "qo/core/CTime.h"
#include "qo/fs/CLocalFileSystem.h"
#include "qo/stream/CBufferStream.h"

namespace {

namespace stdfs = std::filesystem;

constexpr int kFiles = 10000;
constexpr long long kStoreBytes = 256LL * 1024 * 1024;

stdfs::path g_dir;  // the listing folder
qo::CURI g_uri;
stdfs::path g_storeDir;  // source and targets of the store pair
qo::P<qo::TBuffer<unsigned char>> g_storeBytes;
qo::P<qo::CLocalFileSystem> g_fs;

std::string quoted(stdfs::path const& path) { return "'" + path.string() + "'"; }

void BM_BackgroundStoreQo(benchmark::State& state) {
  qo::CURI const target = qo::CLocalFileSystem::toURI(qo::String((g_storeDir / "qo.bin").u16string()), false);
  for (auto _ : state) {
    qo::P<qo::CBufferStream> source =
        qo::newP<qo::CBufferStream>(static_cast<qo::TBuffer<unsigned char> const*>(g_storeBytes.get()));
    qo::P<qo::IBackgroundOp> op = g_fs->backgroundStore(target, kStoreBytes, source.get(), true, nullptr);
    if (!op->waitFinished(-1)) state.SkipWithError("the store did not finish");
    op->throwErrorIfFailed();
  }
  state.SetBytesProcessed(state.iterations() * kStoreBytes);
}
BENCHMARK(BM_BackgroundStoreQo)->UseRealTime()->Unit(benchmark::kMillisecond);

void runShell(benchmark::State& state, std::string const& command) {
  for (auto _ : state) {
    if (std::system(command.c_str()) != 0) state.SkipWithError(("failed: " + command).c_str());
  }
  state.SetBytesProcessed(state.iterations() * kStoreBytes);
}

void BM_BackgroundStoreCp(benchmark::State& state) {
  runShell(state, "cp " + quoted(g_storeDir / "source.bin") + " " + quoted(g_storeDir / "cp.bin"));
}
BENCHMARK(BM_BackgroundStoreCp)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_BackgroundStoreCpSync(benchmark::State& state) {
  stdfs::path const target = g_storeDir / "cp-sync.bin";
  runShell(state, "cp " + quoted(g_storeDir / "source.bin") + " " + quoted(target) + " && sync " + quoted(target));
}
BENCHMARK(BM_BackgroundStoreCpSync)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ListFolderQo(benchmark::State& state) {
  for (auto _ : state) {
    long long total = 0;
    qo::P<qo::IFolderContentsIterator> it = g_fs->getFolderContents(g_uri);
    for (qo::P<qo::IFileInfoBase> entry; it->getNext(entry);) {
      total += entry->getSize() + (entry->getLastWriteTime().getMicros() & 1) + entry->getKind();
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(BM_ListFolderQo)->UseRealTime();

void BM_ListFolderStdSameFacts(benchmark::State& state) {
  for (auto _ : state) {
    long long total = 0;
    for (stdfs::directory_entry const& entry : stdfs::directory_iterator(g_dir)) {
      stdfs::file_status const status = entry.symlink_status();
      long long const size = stdfs::is_regular_file(status) ? static_cast<long long>(entry.file_size()) : 0;
      total += size + (entry.last_write_time().time_since_epoch().count() & 1) + static_cast<int>(status.type());
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(BM_ListFolderStdSameFacts)->UseRealTime();

void BM_ListFolderStdOneStat(benchmark::State& state) {
  for (auto _ : state) {
    long long total = 0;
    for (stdfs::directory_entry const& entry : stdfs::directory_iterator(g_dir)) {
      total += static_cast<int>(entry.symlink_status().type());
    }
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(state.iterations() * kFiles);
}
BENCHMARK(BM_ListFolderStdOneStat)->UseRealTime();

void setUpLocalFileSystemBench() {
  std::string const stamp = std::to_string(qo::CTime::now().getMicros() % 1000000007);
  g_storeDir = stdfs::temp_directory_path() / ("qo-bench-store-" + stamp);
  stdfs::create_directories(g_storeDir);
  g_storeBytes = qo::newP<qo::TBuffer<unsigned char>>(kStoreBytes);
  for (long long i = 0; i < kStoreBytes; ++i) (*g_storeBytes)[i] = static_cast<unsigned char>((i * 7) ^ (i >> 11));
  {
    std::ofstream out(g_storeDir / "source.bin", std::ios::binary);
    out.write(reinterpret_cast<char const*>(g_storeBytes->getData()), static_cast<std::streamsize>(kStoreBytes));
  }

  g_dir = stdfs::temp_directory_path() / ("qo-bench-listing-" + stamp);
  stdfs::create_directories(g_dir);
  for (int i = 0; i < kFiles; ++i) {
    std::ofstream out(g_dir / ("file-" + std::to_string(i) + ".dat"), std::ios::binary);
    out << std::string(static_cast<std::size_t>(i % 97), 'x');
  }
  g_uri = qo::CLocalFileSystem::toURI(qo::String(g_dir.u16string()), true);
  g_fs = qo::newP<qo::CLocalFileSystem>();
}

void tearDownLocalFileSystemBench() {
  g_fs = qo::nil;
  g_storeBytes = qo::nil;
  std::error_code ignored;
  stdfs::remove_all(g_dir, ignored);
  stdfs::remove_all(g_storeDir, ignored);
}

}  // namespace

QO_BENCH_RATIO("backgroundStore 256 MiB (with flush) / cp", "BM_BackgroundStoreQo/1", "BM_BackgroundStoreCp/1");
QO_BENCH_RATIO("backgroundStore 256 MiB (with flush) / cp + sync", "BM_BackgroundStoreQo/1",
               "BM_BackgroundStoreCpSync/1");
QO_BENCH_RATIO("CLocalFileSystem listing / directory_iterator + status, size, time (10,000 files)",
               "BM_ListFolderQo/1", "BM_ListFolderStdSameFacts/1");
QO_BENCH_RATIO("CLocalFileSystem listing / directory_iterator + symlink_status only (10,000 files)",
               "BM_ListFolderQo/1", "BM_ListFolderStdOneStat/1");
QO_BENCH_SETUP(setUpLocalFileSystemBench, tearDownLocalFileSystemBench);

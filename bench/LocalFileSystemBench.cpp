// Folder listing with per-entry facts: CLocalFileSystem::getFolderContents
// (every entry with kind, size, times, identity) against
// std::filesystem::directory_iterator on the same folder of 2000 files.
//
// The standard side is measured twice: once asking what the qo entries
// carry (kind without following links, size, last write time: symlink_status,
// file_size and last_write_time, each a call of its own on POSIX), once with
// the one symlink_status() call per entry, its cheapest listing that looks
// at each entry at all. The folder is made once, outside the timing; the page
// cache is warm for both sides. One iteration lists the whole folder.
#include <benchmark/benchmark.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchMain.h"
#include "qo/core/CTime.h"
#include "qo/fs/CLocalFileSystem.h"

namespace {

namespace stdfs = std::filesystem;

constexpr int kFiles = 2000;

stdfs::path g_dir;
qo::CURI g_uri;
qo::P<qo::CLocalFileSystem> g_fs;

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
  g_dir = stdfs::temp_directory_path() /
          ("qo-bench-listing-" + std::to_string(qo::CTime::now().getMicros() % 1000000007));
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
  std::error_code ignored;
  stdfs::remove_all(g_dir, ignored);
}

}  // namespace

QO_BENCH_RATIO("CLocalFileSystem listing / directory_iterator + status, size, time (2000 files)",
               "BM_ListFolderQo/1", "BM_ListFolderStdSameFacts/1");
QO_BENCH_RATIO("CLocalFileSystem listing / directory_iterator + symlink_status only (2000 files)",
               "BM_ListFolderQo/1", "BM_ListFolderStdOneStat/1");
QO_BENCH_SETUP(setUpLocalFileSystemBench, tearDownLocalFileSystemBench);

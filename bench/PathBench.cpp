// Windows path normalisation: TPathImpl<CWindowsPathTraits> construction
// (parse, root spelling, "." and ".." resolution, long prefix) against
// std::filesystem::path(text).lexically_normal() on one corpus of realistic
// backup paths: drive paths, UNC shares, long-prefixed and device forms,
// "." and "..", doubled and mixed separators, paths past 260 characters.
//
// Both sides start from the text. The standard side gets the text in its
// native form, prepared outside the timing: on Windows the same UTF-16
// text; elsewhere UTF-8 with slashes, since a POSIX std::filesystem does not
// take backslashes as separators (it then does the same work on the same
// structure). The whole corpus is one iteration.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "BenchMain.h"
#include "qo/core/String.h"
#include "qo/fs/CUnixPathTraits.h"
#include "qo/fs/CWindowsPathTraits.h"
#include "qo/fs/TPathImpl.h"

namespace {

using WinPath = qo::TPathImpl<qo::CWindowsPathTraits>;

std::vector<qo::String> g_corpus;
std::vector<std::filesystem::path::string_type> g_nativeCorpus;

char const* const kUsers[] = {"alice", "Bob.Smith", "c.mueller", "admin", "svc-backup"};
char const* const kFolders[] = {"Documents", "Pictures", "AppData", "Local", "Roaming", "Microsoft", "Projects",
                                "2023", "Q4 Reports", "node_modules", "src", "build", "Archive (old)", "Temp"};
char const* const kFiles[] = {"report.docx", "IMG_2041.JPG", "data.db", "notes.txt", "setup.exe", "index.js",
                              "Thumbs.db", "backup.vhdx", "mail.pst", "budget 2024.xlsx"};

std::string pick(std::mt19937& rng, char const* const* items, std::size_t count) {
  return items[std::uniform_int_distribution<std::size_t>(0, count - 1)(rng)];
}
#define QO_PICK(rng, items) pick(rng, items, sizeof items / sizeof items[0])

// A folder chain under a root, with the quirks of real input mixed in.
std::string makeTail(std::mt19937& rng, int depth, int quirkPercent, char sep) {
  std::uniform_int_distribution<int> percent(0, 99);
  std::string tail;
  for (int i = 0; i < depth; ++i) {
    tail += QO_PICK(rng, kFolders);
    int const quirk = percent(rng);
    if (quirk < quirkPercent / 4) {
      tail += sep;
      tail += "..";
    } else if (quirk < quirkPercent / 2) {
      tail += sep;
      tail += ".";
    } else if (quirk < quirkPercent * 3 / 4) {
      tail += sep;  // doubled separator
    } else if (quirk < quirkPercent) {
      sep = sep == '\\' ? '/' : '\\';  // mixed separators from here on
    }
    tail += sep;
  }
  tail += QO_PICK(rng, kFiles);
  return tail;
}

void buildCorpus() {
  std::mt19937 rng(4711u);
  std::vector<std::string> texts;
  for (int i = 0; i < 150; ++i) {
    texts.push_back("C:\\Users\\" + QO_PICK(rng, kUsers) + "\\" + makeTail(rng, 2 + i % 6, 40, '\\'));
  }
  for (int i = 0; i < 100; ++i) {
    texts.push_back("\\\\NAS0" + std::to_string(i % 4) + "\\backup$\\" + QO_PICK(rng, kUsers) + "\\" +
                    makeTail(rng, 2 + i % 5, 40, '\\'));
  }
  for (int i = 0; i < 60; ++i) {
    texts.push_back("d:/data/" + makeTail(rng, 3 + i % 4, 50, '/'));
  }
  for (int i = 0; i < 40; ++i) {
    texts.push_back("\\\\?\\C:\\Program Files\\" + makeTail(rng, 3, 30, '\\'));
  }
  for (int i = 0; i < 50; ++i) {  // past 260 characters
    texts.push_back("E:\\Backup\\" + QO_PICK(rng, kUsers) + "\\" + makeTail(rng, 24 + i % 8, 20, '\\'));
  }
  for (int i = 0; i < 30; ++i) {
    texts.push_back("\\\\fileserver\\Projects\\" + makeTail(rng, 26, 20, '\\'));
  }
  for (std::string const& text : texts) {
    g_corpus.push_back(qo::String::fromUTF8(text));
    auto native = std::filesystem::path(g_corpus.back().str()).native();
    if (std::filesystem::path::preferred_separator == '/') {
      // "//?/C:/..." means nothing special to POSIX: one more absolute path.
      for (auto& c : native) {
        if (c == '\\') c = '/';
      }
    }
    g_nativeCorpus.push_back(native);
  }
}

void BM_PathNormalizeQo(benchmark::State& state) {
  for (auto _ : state) {
    for (qo::String const& text : g_corpus) {
      WinPath path(text);
      benchmark::DoNotOptimize(path.toString().data());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(g_corpus.size()));
}
BENCHMARK(BM_PathNormalizeQo)->UseRealTime();

void BM_PathNormalizeStd(benchmark::State& state) {
  for (auto _ : state) {
    for (auto const& text : g_nativeCorpus) {
      std::filesystem::path normal = std::filesystem::path(text).lexically_normal();
      benchmark::DoNotOptimize(normal.native().data());
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<long long>(g_nativeCorpus.size()));
}
BENCHMARK(BM_PathNormalizeStd)->UseRealTime();

// One POSIX path with a "." component, a ".." and a doubled slash. The
// Unix traits keep ".." (a symbolic link may stand before it) while the
// standard side resolves it; otherwise both do the same splitting and
// joining. The UTF-8 text the standard side takes is prepared outside.
char16_t const kUnixPath[] = u"/a/./b/../c//d/e.txt";

void BM_UnixPathNormalizeQo(benchmark::State& state) {
  qo::String const text(kUnixPath);
  for (auto _ : state) {
    qo::TPathImpl<qo::CUnixPathTraits> path(text);
    benchmark::DoNotOptimize(path.toString().data());
  }
}
BENCHMARK(BM_UnixPathNormalizeQo)->UseRealTime();

void BM_UnixPathNormalizeStd(benchmark::State& state) {
  std::string const text = qo::String(kUnixPath).toUTF8();
  for (auto _ : state) {
    std::filesystem::path normal = std::filesystem::path(text).lexically_normal();
    benchmark::DoNotOptimize(normal.native().data());
  }
}
BENCHMARK(BM_UnixPathNormalizeStd)->UseRealTime();

void setUpPathBench() { buildCorpus(); }
void tearDownPathBench() {
  g_corpus.clear();
  g_nativeCorpus.clear();
}

}  // namespace

QO_BENCH_RATIO("TPathImpl<CWindowsPathTraits> normalisation / path::lexically_normal (430 paths)",
               "BM_PathNormalizeQo/1", "BM_PathNormalizeStd/1");
QO_BENCH_RATIO("TPathImpl<CUnixPathTraits> of \"/a/./b/../c//d/e.txt\" / path::lexically_normal",
               "BM_UnixPathNormalizeQo/1", "BM_UnixPathNormalizeStd/1");
QO_BENCH_SETUP(setUpPathBench, tearDownPathBench);

// Data cache.
//
// The cost of a hit: CDataCache::lookup of a held block (a hash lookup, a
// move to the front of the use order and a reference to the block, under
// the cache's lock) against a std::unordered_map lookup of the same key
// that copies a std::shared_ptr, under a std::mutex. 1024 blocks of 4 KiB on
// one URI; keys visited in a fixed scrambled order. One thread and two
// threads sharing the cache.
#include <benchmark/benchmark.h>

#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "BenchMain.h"
#include "qo/fs/CURI.h"
#include "qo/util/CDataCache.h"

namespace {

constexpr int kBlocks = 1024;
constexpr int kBlockSize = 4096;

qo::CURI const& benchURI() {
  static qo::CURI const uri(u"file:///bench/data.bin");
  return uri;
}

long long keyAt(int i) { return static_cast<long long>((i * 617) % kBlocks) * kBlockSize; }

qo::CDataCache& qoCache() {
  static qo::P<qo::CDataCache> const cache = [] {
    qo::P<qo::CDataCache> c = qo::newP<qo::CDataCache>(2LL * kBlocks * kBlockSize);
    for (int i = 0; i < kBlocks; ++i) c->insert(benchURI(), keyAt(i), qo::newP<qo::CDataCache::Block>(kBlockSize));
    return c;
  }();
  return *cache;
}

struct StdKey {
  std::u16string uri;
  long long offset;
  bool operator==(StdKey const& o) const { return offset == o.offset && uri == o.uri; }
};
struct StdKeyHash {
  std::size_t operator()(StdKey const& k) const {
    return std::hash<std::u16string>()(k.uri) ^ (std::hash<long long>()(k.offset) * 31);
  }
};

struct StdCache {
  std::mutex mutex;
  std::unordered_map<StdKey, std::shared_ptr<std::vector<unsigned char>>, StdKeyHash> map;
};

StdCache& stdCache() {
  static StdCache* const cache = [] {
    auto* c = new StdCache;
    for (int i = 0; i < kBlocks; ++i) {
      c->map.emplace(StdKey{u"/bench/data.bin", keyAt(i)}, std::make_shared<std::vector<unsigned char>>(kBlockSize));
    }
    return c;
  }();
  return *cache;
}

void BM_DataCacheHit(benchmark::State& state) {
  qo::CDataCache& cache = qoCache();
  qo::CURI const& uri = benchURI();
  int i = state.thread_index() * 97;
  for (auto _ : state) {
    qo::PC<qo::CDataCache::Block> block = cache.lookup(uri, keyAt(i++ & (kBlocks - 1)));
    benchmark::DoNotOptimize(block.get());
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_StdMapMutexHit(benchmark::State& state) {
  StdCache& cache = stdCache();
  StdKey key{u"/bench/data.bin", 0};
  int i = state.thread_index() * 97;
  for (auto _ : state) {
    key.offset = keyAt(i++ & (kBlocks - 1));
    std::shared_ptr<std::vector<unsigned char>> block;
    {
      std::lock_guard<std::mutex> lock(cache.mutex);
      auto const found = cache.map.find(key);
      if (found != cache.map.end()) block = found->second;
    }
    benchmark::DoNotOptimize(block.get());
  }
  state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_DataCacheHit)->Threads(1)->Threads(2);
BENCHMARK(BM_StdMapMutexHit)->Threads(1)->Threads(2);

}  // namespace

QO_BENCH_RATIO("CDataCache hit / unordered_map + mutex (1 thread)", "BM_DataCacheHit/1", "BM_StdMapMutexHit/1");
QO_BENCH_RATIO("CDataCache hit / unordered_map + mutex (2 threads)", "BM_DataCacheHit/2", "BM_StdMapMutexHit/2");

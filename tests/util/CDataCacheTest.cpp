#include "qo/util/CDataCache.h"

#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "stream/StreamTestSupport.h"

using qo::CDataCache;
using qo::CURI;
using qo::P;
using qo::PC;
using Block = CDataCache::Block;

namespace {

PC<Block> makeBlock(long long size, unsigned char fill) {
  P<Block> block = qo::newP<Block>(size);
  for (long long i = 0; i < size; ++i) (*block)[i] = static_cast<unsigned char>(fill + i);
  return block;
}

}  // namespace

// Least recently used blocks go first; too large blocks are not kept; a key
// holds one block; a smaller budget evicts at once.
TEST(CDataCacheTest, EvictsLeastRecentlyUsedWithinTheBudget) {
  CURI const uri(u"file:///data/a.bin");
  P<CDataCache> cache = qo::newP<CDataCache>(30);
  struct Step {
    char action;  // i: insert, g: lookup (expect hit?), m: set budget
    long long key, size;
    bool hit;
    std::set<long long> keys;  // held afterwards
    long long used;
  } const steps[] = {
      {'i', 0, 10, false, {0}, 10},        {'i', 1, 10, false, {0, 1}, 20},
      {'i', 2, 10, false, {0, 1, 2}, 30},  {'g', 0, 0, true, {0, 1, 2}, 30},
      {'i', 3, 10, false, {0, 2, 3}, 30},  // 1 was least recently used
      {'i', 4, 31, false, {0, 2, 3}, 30},  // larger than the budget: not kept
      {'i', 2, 20, false, {2, 3}, 30},     // replaces 2; 0 is now the oldest
      {'g', 0, 0, false, {2, 3}, 30},      {'m', 15, 0, false, {}, 0},
  };
  int index = 0;
  for (auto const& s : steps) {
    SCOPED_TRACE(index++);
    if (s.action == 'i') cache->insert(uri, s.key, makeBlock(s.size, static_cast<unsigned char>(s.key)));
    if (s.action == 'g') EXPECT_EQ(static_cast<bool>(cache->lookup(uri, s.key)), s.hit);
    if (s.action == 'm') cache->setMaxBytes(s.key);
    EXPECT_EQ(cache->getUsedBytes(), s.used);
    EXPECT_EQ(cache->getBlockCount(), static_cast<int>(s.keys.size()));
    for (long long k = 0; k < 5; ++k) EXPECT_EQ(cache->contains(uri, k), s.keys.count(k) > 0) << k;
  }
  CDataCache::Stats const stats = cache->getStats();
  EXPECT_EQ(stats.hits, 1);
  EXPECT_EQ(stats.misses, 1);
  EXPECT_EQ(stats.evictions, 4);
}

TEST(CDataCacheTest, RemovesByKeyAndByURIAndRefusesBadInput) {
  CURI const a(u"file:///data/a.bin");
  CURI const b(u"file:///data/b.bin");
  P<CDataCache> cache = qo::newP<CDataCache>(1000);
  for (long long offset = 0; offset < 4; ++offset) {
    cache->insert(a, offset, makeBlock(10, 0));
    cache->insert(b, offset, makeBlock(10, 0));
  }
  EXPECT_TRUE(cache->remove(a, 3));
  EXPECT_FALSE(cache->remove(a, 3));
  EXPECT_EQ(cache->removeURI(a), 3);
  EXPECT_EQ(cache->getBlockCount(), 4);
  EXPECT_EQ(cache->getUsedBytes(), 40);
  PC<Block> kept = cache->lookup(b, 1);
  cache->clear();
  EXPECT_EQ(cache->getUsedBytes(), 0);
  EXPECT_EQ(kept->getSize(), 10);  // a holder keeps its block
  qo::test::catchError<qo::CInvalidArgError>([&] { cache->insert(a, 0, PC<Block>()); });
  qo::test::catchError<qo::CInvalidArgError>([&] { cache->setMaxBytes(-1); });
  qo::test::catchError<qo::CInvalidArgError>([&] { (void)qo::newP<CDataCache>(-5); });
}

// Many threads insert, look up, remove and shrink the budget at once: the
// budget is never exceeded and every block found holds the bytes of its key.
TEST(CDataCacheTest, ManyThreadsKeepBudgetAndContents) {
  CURI const uris[] = {CURI(u"file:///data/a.bin"), CURI(u"file:///data/b.bin")};
  P<CDataCache> cache = qo::newP<CDataCache>(2000);
  auto sizeOf = [](int u, long long offset) { return 1 + (offset * 37 + u * 11) % 300; };
  std::atomic<int> faults{0};
  std::atomic<long long> hits{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t));
      for (int i = 0; i < 3000; ++i) {
        int const u = static_cast<int>(random() % 2);
        long long const offset = static_cast<long long>(random() % 40);
        unsigned char const fill = static_cast<unsigned char>(offset * 3 + u);
        int const op = static_cast<int>(random() % 100);
        if (op < 50) {
          PC<Block> block = cache->lookup(uris[u], offset);
          if (block) {
            ++hits;
            if (block->getSize() != sizeOf(u, offset) || (*block)[block->getSize() - 1] !=
                                                             static_cast<unsigned char>(fill + block->getSize() - 1)) {
              ++faults;
            }
          }
        } else if (op < 95) {
          cache->insert(uris[u], offset, makeBlock(sizeOf(u, offset), fill));
        } else if (op < 98) {
          (void)cache->remove(uris[u], offset);
        } else if (t == 0) {
          cache->setMaxBytes(op == 98 ? 800 : 2000);
        } else {
          (void)cache->removeURI(uris[u]);
        }
        if (cache->getUsedBytes() > 2000) ++faults;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(faults.load(), 0);
  EXPECT_GT(hits.load(), 0);
  EXPECT_LE(cache->getUsedBytes(), cache->getMaxBytes());
}

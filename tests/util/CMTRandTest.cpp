#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/util/CMTRand.h"

using namespace qo;

TEST(CMTRand, MatchesStandardEnginesForMillionOutputs) {
  struct Case {
    std::uint64_t seed;
    int count;
  } const cases[] = {{5489, 1000000}, {20261124, 1000000}, {0, 10000}, {0xFFFFFFFFu, 10000}};
  for (auto const& [seed, count] : cases) {
    SCOPED_TRACE(seed);
    CMTRand r32(CMTRand::k32, seed), r64(CMTRand::k64, seed);
    std::mt19937 s32(static_cast<std::uint32_t>(seed));
    std::mt19937_64 s64(seed);
    int mismatches = 0;
    for (int i = 0; i < count; ++i) {
      mismatches += r32.next() != s32();
      mismatches += r64.next() != s64();
    }
    EXPECT_EQ(mismatches, 0);
  }
}

TEST(CMTRand, ArraySeedingGivesThePublishedOutputs) {
  std::uint64_t const key32[] = {0x123, 0x234, 0x345, 0x456};
  CMTRand r32(CMTRand::k32, key32, 4);
  for (std::uint64_t expected : {1067595299u, 955945823u, 477289528u, 4107218783u, 4228976476u})
    EXPECT_EQ(r32.next(), expected);
  std::uint64_t const key64[] = {0x12345, 0x23456, 0x34567, 0x45678};
  CMTRand r64(CMTRand::k64, key64, 4);
  for (std::uint64_t expected : {7266447313870364031ULL, 4946485549665804864ULL}) EXPECT_EQ(r64.next(), expected);
  EXPECT_THROW(r64.seedByArray(key64, 0), CInvalidArgError);
}

TEST(CMTRand, UniformCoversTheRangeWithoutBias) {
  struct Case {
    std::int64_t low, high;
  } const cases[] = {{0, 0}, {1, 6}, {-3, 3}, {0, 2}, {INT64_MIN, INT64_MAX}, {INT64_MAX - 1, INT64_MAX}};
  for (auto variant : {CMTRand::k32, CMTRand::k64}) {
    CMTRand rng(variant, 99);
    for (auto const& c : cases) {
      SCOPED_TRACE(std::to_string(c.low) + ".." + std::to_string(c.high));
      for (int i = 0; i < 1000; ++i) {
        std::int64_t v = rng.uniform(c.low, c.high);
        ASSERT_TRUE(v >= c.low && v <= c.high) << v;
      }
    }
    // Over 30000 draws each value stays within 5 standard deviations of
    // 10000.
    int counts[3] = {0, 0, 0};
    for (int i = 0; i < 30000; ++i) ++counts[rng.uniform(0, 2)];
    for (int c : counts) EXPECT_NEAR(c, 10000, 410);
    double sum = 0;
    for (int i = 0; i < 10000; ++i) {
      double d = rng.nextDouble();
      ASSERT_TRUE(d >= 0.0 && d < 1.0);
      sum += d;
    }
    EXPECT_NEAR(sum / 10000, 0.5, 0.015);
  }
  CMTRand rng;
  EXPECT_THROW(rng.uniform(2, 1), CInvalidArgError);
}

TEST(CMTRand, DoublesFollowTheReferenceFormula) {
  CMTRand r32(CMTRand::k32, 7), r64(CMTRand::k64, 7);
  std::mt19937 s32(7);
  std::mt19937_64 s64(7);
  for (int i = 0; i < 100; ++i) {
    std::uint32_t a = s32() >> 5, b = s32() >> 6;
    EXPECT_EQ(r32.nextDouble(), (a * 67108864.0 + b) / 9007199254740992.0);
    EXPECT_EQ(r64.nextDouble(), static_cast<double>(s64() >> 11) / 9007199254740992.0);
  }
}

TEST(CMTRand, GlobalIsOneInstanceSafeForManyThreads) {
  P<CMTRand> global = CMTRand::getGlobal();
  std::vector<std::thread> threads;
  std::vector<std::vector<std::uint64_t>> drawn(4);
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t, &drawn] {
      EXPECT_EQ(CMTRand::getGlobal().get(), CMTRand::getGlobal().get());
      for (int i = 0; i < 2000; ++i) drawn[t].push_back(CMTRand::getGlobal()->next64());
    });
  }
  for (auto& th : threads) th.join();
  // A torn state would repeat outputs; 8000 64-bit values never collide.
  std::set<std::uint64_t> all;
  for (auto const& d : drawn) all.insert(d.begin(), d.end());
  EXPECT_EQ(all.size(), 8000u);
  EXPECT_EQ(global.get(), CMTRand::getGlobal().get());
}

TEST(CMTRand, UniformMatchesAWideMultiplyReference) {
  __extension__ typedef unsigned __int128 U128;
  for (std::uint64_t span : {std::uint64_t(5), std::uint64_t(1000000006), std::uint64_t(3) << 62, ~std::uint64_t(1)}) {
    SCOPED_TRACE(span);
    CMTRand rng(CMTRand::k64, span);
    std::mt19937_64 reference(span);
    std::uint64_t const range = span + 1;
    for (int i = 0; i < 2000; ++i) {
      U128 m = U128(reference()) * range;
      if (std::uint64_t(m) < range) {
        while (std::uint64_t(m) < (0 - range) % range) m = U128(reference()) * range;
      }
      // From INT64_MIN, so that spans past INT64_MAX fit.
      std::int64_t v = rng.uniform(INT64_MIN, static_cast<std::int64_t>(std::uint64_t(INT64_MIN) + span));
      ASSERT_EQ(std::uint64_t(v) - std::uint64_t(INT64_MIN), std::uint64_t(m >> 64));
    }
  }
}

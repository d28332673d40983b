#include "qo/core/TFlags.h"

#include <gtest/gtest.h>

using namespace qo;

namespace {

enum Plain { kA, kB, kC };
enum class Wide : unsigned long long { kLow = 0, kMid = 31, kTop = 63 };

// Usable in constant expressions, as option defaults are.
constexpr TFlags<Plain> kDefaults{kA, kC};
static_assert(kDefaults.getRaw() == 0b101);
static_assert(kDefaults.has(kC) && !kDefaults.has(kB));

}  // namespace

TEST(TFlagsTest, EnumValuesAreBitIndices) {
  EXPECT_EQ(TFlags<Plain>().getRaw(), 0u);
  EXPECT_EQ(TFlags<Plain>(kA).getRaw(), 1u);
  EXPECT_EQ(TFlags<Plain>(kC).getRaw(), 4u);
  EXPECT_EQ(TFlags<Wide>(Wide::kTop).getRaw(), 1ull << 63);
  EXPECT_EQ((TFlags<Wide>{Wide::kLow, Wide::kMid, Wide::kTop}).getRaw(), (1ull << 63) | (1ull << 31) | 1ull);
}

TEST(TFlagsTest, SetClearHasAndSetOperations) {
  TFlags<Plain> f;
  EXPECT_TRUE(f.isEmpty());
  f.set(kB).set(kC);
  EXPECT_FALSE(f.has(kA));
  EXPECT_TRUE(f.has(kB));
  EXPECT_TRUE(f.has(kC));
  f.clear(kB);
  EXPECT_EQ(f, TFlags<Plain>(kC));
  f.set(kA, true).set(kC, false);
  EXPECT_EQ(f, TFlags<Plain>(kA));
  f.clear();
  EXPECT_TRUE(f.isEmpty());
  TFlags<Plain> const ab{kA, kB};
  TFlags<Plain> const bc{kB, kC};
  EXPECT_EQ(ab | bc, (TFlags<Plain>{kA, kB, kC}));
  EXPECT_EQ(ab & bc, TFlags<Plain>(kB));
  EXPECT_EQ(ab | kC, (TFlags<Plain>{kA, kB, kC}));
  EXPECT_TRUE(ab.hasAny(bc));
  EXPECT_FALSE(ab.hasAll(bc));
  EXPECT_TRUE(ab.hasAll(TFlags<Plain>(kA)));
  EXPECT_TRUE(ab.hasAll(TFlags<Plain>()));
  EXPECT_FALSE(ab.hasAny(TFlags<Plain>()));
  EXPECT_EQ(TFlags<Plain>::fromRaw(ab.getRaw()), ab);
  EXPECT_NE(ab, bc);
}

#include "qo/stream/CRangeKey.h"

#include <gtest/gtest.h>

#include <map>

using qo::CRangeKey;
using qo::String;

TEST(CRangeKeyTest, ComparisonsTreatOverlapAsEquality) {
  struct Case {
    CRangeKey a, b;
    bool less, greater, equal;
  } const cases[] = {
      {{0, 10}, {5, 10}, false, false, true},   // overlap
      {{5, 10}, {0, 10}, false, false, true},
      {{0, 5}, {5, 5}, true, false, false},     // adjacent
      {{5, 5}, {0, 5}, false, true, false},
      {{3, 0}, {3, 0}, false, false, true},     // empty, same start
      {{3, 0}, {4, 0}, true, false, false},     // empty, other start
      {{0, 100}, {10, 1}, false, false, true},  // containment
      {{0, 3}, {7, 3}, true, false, false},     // apart
      {{2, 0}, {0, 10}, false, false, true},    // empty inside a range
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.a.toString() + u" vs " + c.b.toString());
    EXPECT_EQ(c.a < c.b, c.less);
    EXPECT_EQ(c.a > c.b, c.greater);
    EXPECT_EQ(c.a == c.b, c.equal);
    EXPECT_EQ(c.a != c.b, !c.equal);
    EXPECT_EQ(c.a <= c.b, c.less || c.equal);
    EXPECT_EQ(c.a >= c.b, c.greater || c.equal);
  }
}

TEST(CRangeKeyTest, OverlapIsTheCommonPartOrZero) {
  struct Case {
    CRangeKey a, b;
    long long start, length;
  } const cases[] = {
      {{0, 5}, {5, 5}, 0, 0},    {{0, 10}, {5, 10}, 5, 5}, {{5, 10}, {0, 10}, 5, 5},
      {{0, 100}, {10, 1}, 10, 1}, {{0, 3}, {7, 3}, 0, 0},   {{4, 0}, {0, 10}, 0, 0},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.a.toString() + u" vs " + c.b.toString());
    CRangeKey const overlap = c.a.getOverlap(c.b);
    EXPECT_EQ(overlap.getStart(), c.start);
    EXPECT_EQ(overlap.getLength(), c.length);
  }
}

TEST(CRangeKeyTest, AccessorsAndText) {
  CRangeKey key;
  EXPECT_TRUE(key.isZero());
  key.setStart(7);
  key.setLength(3);
  EXPECT_FALSE(key.isZero());
  EXPECT_FALSE(CRangeKey(0, 1).isZero());
  EXPECT_EQ(key.getEnd(), 10);
  EXPECT_EQ(key.toString(), String(u"[7, 10)"));
}

TEST(CRangeKeyTest, MapLookupFindsTheTouchingRange) {
  std::map<CRangeKey, int> map;
  map[CRangeKey(0, 10)] = 1;
  map[CRangeKey(10, 10)] = 2;
  map[CRangeKey(30, 5)] = 3;
  struct Case {
    CRangeKey probe;
    int found;  // 0: none
  } const cases[] = {{{0, 1}, 1}, {{9, 1}, 1}, {{10, 1}, 2}, {{19, 1}, 2}, {{20, 10}, 0}, {{34, 100}, 3}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.probe.toString());
    auto it = map.find(c.probe);
    EXPECT_EQ(it == map.end() ? 0 : it->second, c.found);
  }
}

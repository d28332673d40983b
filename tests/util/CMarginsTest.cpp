#include <gtest/gtest.h>

#include "qo/util/CMargins.h"

using namespace qo;

static_assert(CMargins(1, 2, 3, 4) + CMargins(1) == CMargins(2, 3, 4, 5), "side-by-side sum");
static_assert(CMargins(8, 4).getHorizontal() == 16 && CMargins(8, 4).getVertical() == 8, "symmetric form");
static_assert(CMargins(5).innerWidth(7) == 0 && CMargins(5).outerHeight(7) == 17, "inner and outer sizes");

TEST(CMargins, ArithmeticForLayouts) {
  CMargins const a(1, 2, 3, 4), b(4, 3, -2, 1);
  EXPECT_EQ(a - b, CMargins(-3, -1, 5, 3));
  EXPECT_EQ(-a, CMargins(-1, -2, -3, -4));
  EXPECT_EQ(a * 3, CMargins(3, 6, 9, 12));
  EXPECT_EQ(a.unionWith(b), CMargins(4, 3, 3, 4));
  EXPECT_EQ(a.intersectWith(b), CMargins(1, 2, -2, 1));
  EXPECT_TRUE(a.isNonNegative());
  EXPECT_FALSE(b.isNonNegative());
  EXPECT_TRUE(CMargins().isZero());
  CMargins c = a;
  c += b;
  c -= b;
  EXPECT_EQ(c, a);
  EXPECT_EQ(a.innerWidth(10), 6);
  EXPECT_EQ(a.innerHeight(10), 4);
  EXPECT_EQ(a.toString(), String(u"1,2,3,4"));
}

TEST(CMargins, ScalingRoundsHalfAwayFromZero) {
  struct Case {
    double factor;
    CMargins expected;
  } const cases[] = {{1.0, CMargins(1, -3, 5, 0)},  {1.5, CMargins(2, -5, 8, 0)},
                     {1.25, CMargins(1, -4, 6, 0)}, {0.5, CMargins(1, -2, 3, 0)},
                     {2.0, CMargins(2, -6, 10, 0)}, {0.0, CMargins()}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.factor);
    EXPECT_EQ(CMargins(1, -3, 5, 0).scaled(c.factor), c.expected);
  }
}

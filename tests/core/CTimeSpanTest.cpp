#include "qo/core/CTimeSpan.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <stdexcept>

#include "qo/core/CInvalidArgError.h"

using namespace qo;

namespace {

constexpr long long kMax = LLONG_MAX;

static_assert(CTimeSpan().getMicros() == 0, "a default span is zero");
static_assert(CTimeSpan::fromMinutes(2).getSeconds() == 120);
static_assert(!(-CTimeSpan::invalid()).isValid());

// The CInvalidArgError f throws; a missing one fails the test.
template <class F>
CInvalidArgError expectInvalidArg(F f) {
  try {
    f();
  } catch (CInvalidArgError const& e) {
    return e;
  }
  throw std::logic_error("no CInvalidArgError was thrown");
}

}  // namespace

TEST(CTimeSpanTest, UnitsConvertExactly) {
  struct Case {
    CTimeSpan span;
    long long micros;
  } const cases[] = {
      {CTimeSpan::fromMillis(1), 1000LL},
      {CTimeSpan::fromSeconds(1), 1000000LL},
      {CTimeSpan::fromMinutes(1), 60000000LL},
      {CTimeSpan::fromHours(1), 3600000000LL},
      {CTimeSpan::fromDays(1), 86400000000LL},
      {CTimeSpan::fromDays(-3), -259200000000LL},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.micros);
    EXPECT_EQ(c.span.getMicros(), c.micros);
    EXPECT_EQ(c.span, CTimeSpan::fromMicros(c.micros));
  }
  CTimeSpan const mixed = CTimeSpan::fromMicros(90061001001LL);  // 1 d 1 h 1 min 1 s 1 ms 1 us
  EXPECT_EQ(mixed.getDays(), 1);
  EXPECT_EQ(mixed.getHours(), 25);
  EXPECT_EQ(mixed.getMinutes(), 1501);
  EXPECT_EQ(mixed.getSeconds(), 90061);
  EXPECT_EQ(mixed.getMillis(), 90061001);
  // Getters truncate toward zero.
  EXPECT_EQ(CTimeSpan::fromMicros(-1500000).getSeconds(), -1);
  EXPECT_EQ(CTimeSpan::fromMicros(1999999).getSeconds(), 1);
  EXPECT_EQ(CTimeSpan::fromSeconds(-90).getMinutes(), -1);
  EXPECT_EQ(CTimeSpan::fromMicros(-999).getMillis(), 0);
  EXPECT_EQ(CTimeSpan::fromHours(-47).getDays(), -1);
}

TEST(CTimeSpanTest, ToStringHMS) {
  struct Case {
    CTimeSpan span;
    char const* text;
  } const cases[] = {
      {CTimeSpan(), "0:00:00"},
      {CTimeSpan::fromSeconds(3723), "1:02:03"},
      {CTimeSpan::fromSeconds(90000), "25:00:00"},
      {CTimeSpan::fromSeconds(-5), "-0:00:05"},
      {CTimeSpan::fromSeconds(-3723), "-1:02:03"},
      {CTimeSpan::fromMillis(-500), "0:00:00"},
      {CTimeSpan::fromMicros(59999999), "0:00:59"},
      {CTimeSpan::fromSeconds(599), "0:09:59"},
      {CTimeSpan::fromHours(100000), "100000:00:00"},
      {CTimeSpan::fromMicros(kMax), "2562047788:00:54"},
      {CTimeSpan::fromMicros(-kMax), "-2562047788:00:54"},
      {CTimeSpan::invalid(), "invalid"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.span.toStringHMS(), String(c.text));
  }
}

TEST(CTimeSpanTest, OrderingAndInvalidPropagation) {
  CTimeSpan const bad = CTimeSpan::invalid();
  CTimeSpan const one = CTimeSpan::fromSeconds(1);
  EXPECT_FALSE(bad.isValid());
  EXPECT_TRUE(CTimeSpan().isValid());
  EXPECT_EQ(CTimeSpan::fromMicros(LLONG_MIN), bad);
  for (long long value : {bad.getMicros(), bad.getMillis(), bad.getSeconds(), bad.getMinutes(), bad.getHours(),
                          bad.getDays()}) {
    EXPECT_EQ(value, LLONG_MIN);
  }
  EXPECT_TRUE(std::isnan(bad.getSecondsDouble()));
  EXPECT_FALSE((bad + one).isValid());
  EXPECT_FALSE((one + bad).isValid());
  EXPECT_FALSE((one - bad).isValid());
  EXPECT_FALSE((-bad).isValid());
  CTimeSpan sum = one;
  sum += bad;
  EXPECT_FALSE(sum.isValid());
  EXPECT_LT(bad, CTimeSpan::fromMicros(-kMax));
  CTimeSpan const a = CTimeSpan::fromMillis(-1);
  CTimeSpan const b = CTimeSpan::fromMicros(1);
  EXPECT_LT(a, b);
  EXPECT_LE(a, a);
  EXPECT_GT(b, a);
  EXPECT_GE(b, b);
  EXPECT_NE(a, b);
  CTimeSpan c = a;
  c -= a;
  EXPECT_EQ(c, CTimeSpan());
}

TEST(CTimeSpanTest, RangeIsSymmetricAndOverflowThrows) {
  CTimeSpan const top = CTimeSpan::fromMicros(kMax);
  EXPECT_EQ((-top).getMicros(), -kMax);
  EXPECT_EQ(top - top, CTimeSpan());
  CInvalidArgError e = expectInvalidArg([&] { top + CTimeSpan::fromMicros(1); });
  EXPECT_EQ(e.getMessage(),
            String("Invalid argument passed to 'CTimeSpan::operator+': the time value is out of range."));
  EXPECT_EQ(e.getParams().lookupLong(u"value", 0), kMax);
  EXPECT_EQ(e.getParams().lookupLong(u"operand", 0), 1);
  // -top - 1 us would land on the invalid marker.
  expectInvalidArg([&] { -top - CTimeSpan::fromMicros(1); });
  expectInvalidArg([&] { top - CTimeSpan::fromMicros(-1); });

  long long const maxDays = kMax / CTimeSpan::kMicrosPerDay;
  EXPECT_EQ(CTimeSpan::fromDays(maxDays).getDays(), maxDays);
  EXPECT_EQ(CTimeSpan::fromDays(-maxDays).getDays(), -maxDays);
  e = expectInvalidArg([&] { CTimeSpan::fromDays(maxDays + 1); });
  EXPECT_EQ(e.getMessage(),
            String("Invalid argument passed to 'CTimeSpan::fromDays': the time value is out of range."));
  EXPECT_EQ(e.getParams().lookupLong(u"value", 0), maxDays + 1);
  EXPECT_EQ(e.getParams().lookupLong(u"operand", 0), CTimeSpan::kMicrosPerDay);
  expectInvalidArg([&] { CTimeSpan::fromDays(-maxDays - 1); });
  expectInvalidArg([&] { CTimeSpan::fromMillis(LLONG_MIN); });
  expectInvalidArg([&] { CTimeSpan::fromHours(kMax); });
}

TEST(CTimeSpanTest, SecondsDouble) {
  EXPECT_EQ(CTimeSpan::fromSecondsDouble(0.0000005).getMicros(), 1);  // halves round away from zero
  EXPECT_EQ(CTimeSpan::fromSecondsDouble(-2.25).getMicros(), -2250000);
  EXPECT_DOUBLE_EQ(CTimeSpan::fromMillis(1500).getSecondsDouble(), 1.5);
  EXPECT_DOUBLE_EQ(CTimeSpan::fromMicros(-1500001).getSecondsDouble(), -1.500001);
  for (double bad : {std::nan(""), HUGE_VAL, -HUGE_VAL, 9.3e12, -9.3e12}) {
    SCOPED_TRACE(bad);
    CInvalidArgError const e = expectInvalidArg([&] { CTimeSpan::fromSecondsDouble(bad); });
    EXPECT_TRUE(e.getMessage().Contains(u"'CTimeSpan::fromSecondsDouble'"));
    EXPECT_FALSE(e.getParams().lookup(u"seconds").isEmpty());
  }
}


#include "qo/core/CTime.h"

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cmath>
#include <stdexcept>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"

using namespace qo;

namespace {

constexpr long long kMax = LLONG_MAX;

static_assert(!CTime().isValid(), "a default time is invalid");
static_assert(CTime::fromSeconds(946684800).getWindowsFileTimeUTC() == 125911584000000000LL);
static_assert(CTime::fromFileTime(0).getSeconds() == -11644473600LL);

// Reference values from an independent calendar implementation.
struct KnownDate {
  char const* text;
  long long seconds;
  long long fileTime;
};
KnownDate const kKnownDates[] = {
    {"1601-01-01T00:00:00.000000Z", -11644473600LL, 0LL},
    {"1900-03-01T00:00:00.000000Z", -2203891200LL, 94405824000000000LL},
    {"1969-12-31T23:59:59.000000Z", -1LL, 116444735990000000LL},
    {"1970-01-01T00:00:00.000000Z", 0LL, 116444736000000000LL},
    {"2000-01-01T00:00:00.000000Z", 946684800LL, 125911584000000000LL},
    {"2024-02-29T12:34:56.000000Z", 1709210096LL, 133536836960000000LL},
    {"2100-02-28T23:59:59.000000Z", 4107542399LL, 157520159990000000LL},
    {"9999-12-31T23:59:59.000000Z", 253402300799LL, 2650467743990000000LL},
    {"0001-01-01T00:00:00.000000Z", -62135596800LL, -504911232000000000LL},
};

// The error f throws, which must be an E; a missing one fails the test.
template <class E, class F>
E expectError(F f) {
  try {
    f();
  } catch (E const& e) {
    return e;
  }
  throw std::logic_error("the expected error was not thrown");
}

}  // namespace

TEST(CTimeTest, KnownDatesConvertBothWays) {
  for (KnownDate const& k : kKnownDates) {
    SCOPED_TRACE(k.text);
    CTime const t = CTime::fromSeconds(k.seconds);
    EXPECT_EQ(t.toString(), String(k.text));
    EXPECT_EQ(CTime::fromISOString(String(k.text)), t);
    EXPECT_EQ(t.getWindowsFileTimeUTC(), k.fileTime);
    EXPECT_EQ(CTime::fromFileTime(k.fileTime), t);
    EXPECT_EQ(CTime::fromCTime(k.seconds), t);
    EXPECT_EQ(t.getSeconds(), k.seconds);
    EXPECT_EQ(t.getCTime(), k.seconds);
    EXPECT_EQ(t.getMicros(), k.seconds * 1000000);
  }
}

TEST(CTimeTest, FileTimePartsFlooringAndRangeEnds) {
  EXPECT_EQ(CTime::fromFileTimeParts(0x256D4000u, 0x01BF53EBu), CTime::fromSeconds(946684800));  // low, then high
  EXPECT_EQ(CTime::fromFileTimeParts(0u, 0u), CTime::fromFileTime(0));
  long long const ft1970 = CTime::kFileTimeOf1970;
  EXPECT_EQ(CTime::fromFileTime(ft1970 + 9).getMicros(), 0);
  EXPECT_EQ(CTime::fromFileTime(ft1970 + 10).getMicros(), 1);
  EXPECT_EQ(CTime::fromFileTime(ft1970 - 1).getMicros(), -1);
  EXPECT_EQ(CTime::fromFileTime(-1).getWindowsFileTimeUTC(), -10);
  // Reading drops the sub-microsecond digit; at the low end flooring leaves
  // the range of file times, so converting back refuses.
  EXPECT_EQ(CTime::fromFileTime(kMax).getWindowsFileTimeUTC(), kMax - 7);
  EXPECT_EQ(CTime::fromFileTime(LLONG_MIN + 8).getWindowsFileTimeUTC(), LLONG_MIN + 8);
  expectError<CInvalidArgError>([&] { CTime::fromFileTime(LLONG_MIN).getWindowsFileTimeUTC(); });
}

TEST(CTimeTest, TimesBefore1970FloorToTheirSecondAndDay) {
  CTime const t = CTime::fromMicros(-1);
  EXPECT_EQ(t.getSeconds(), -1);
  EXPECT_EQ(t.toString(), String("1969-12-31T23:59:59.999999Z"));
  CTime::Fields const f = t.getUTCFields();
  EXPECT_EQ(f.year, 1969);
  EXPECT_EQ((std::vector<int>{f.month, f.day, f.hour, f.minute, f.second, f.microsecond}),
            (std::vector<int>{12, 31, 23, 59, 59, 999999}));
}

TEST(CTimeTest, CalendarAdvancesOneDayAtATime) {
  // Walks every day from year -1000 to 3000 and checks each against the
  // previous one with a month table, independent of the era arithmetic.
  auto leap = [](long long y) { return y % 4 == 0 && (y % 100 != 0 || y % 400 == 0); };
  int const monthDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  CTime t = CTime::fromUTCFields(CTime::Fields{-1000});
  CTime::Fields prev = t.getUTCFields();
  ASSERT_EQ(prev.year, -1000);
  CTimeSpan const day = CTimeSpan::fromDays(1);
  while (prev.year < 3000) {
    t += day;
    CTime::Fields const f = t.getUTCFields();
    int const lastDay = prev.month == 2 && leap(prev.year) ? 29 : monthDays[prev.month - 1];
    bool ok;
    if (prev.day < lastDay) {
      ok = f.year == prev.year && f.month == prev.month && f.day == prev.day + 1;
    } else if (prev.month < 12) {
      ok = f.year == prev.year && f.month == prev.month + 1 && f.day == 1;
    } else {
      ok = f.year == prev.year + 1 && f.month == 1 && f.day == 1;
    }
    if (!ok) {
      FAIL() << "after " << prev.year << "-" << prev.month << "-" << prev.day << " came " << f.year << "-" << f.month
             << "-" << f.day;
    }
    prev = f;
  }
}

TEST(CTimeTest, FieldsAndTextRoundTripAcrossTheRange) {
  // A stride that is prime and not a whole number of seconds touches every
  // field; the ends of the range are included.
  long long const stride = 1000000007LL * 1000003LL;
  for (long long m = -kMax; m <= kMax - stride; m += stride) {
    CTime const t = CTime::fromMicros(m);
    ASSERT_EQ(CTime::fromUTCFields(t.getUTCFields()), t) << m;
    ASSERT_EQ(CTime::fromISOString(t.toString()), t) << m;
  }
  for (long long m : {-kMax, -kMax + 1, -1LL, 0LL, 1LL, kMax - 1, kMax}) {
    SCOPED_TRACE(m);
    CTime const t = CTime::fromMicros(m);
    EXPECT_EQ(CTime::fromUTCFields(t.getUTCFields()), t);
    EXPECT_EQ(CTime::fromISOString(t.toString()), t);
  }
}

TEST(CTimeTest, ExtremeTimesPrintWithSignedYears) {
  EXPECT_EQ(CTime::fromMicros(kMax).toString(), String("+294247-01-10T04:00:54.775807Z"));
  EXPECT_EQ(CTime::fromMicros(-kMax).toString(), String("-290308-12-21T19:59:05.224193Z"));
  EXPECT_EQ(CTime::fromUTCFields(CTime::Fields{10000}).toString(), String("+10000-01-01T00:00:00.000000Z"));
  EXPECT_EQ(CTime::fromUTCFields(CTime::Fields{0}).toString(), String("0000-01-01T00:00:00.000000Z"));
  EXPECT_EQ(CTime::fromUTCFields(CTime::Fields{-1}).toString(), String("-0001-01-01T00:00:00.000000Z"));
}

TEST(CTimeTest, FromUTCFieldsRefusesOutOfRangeFields) {
  struct Case {
    long long year;
    int month, day, hour, minute, second, micro;
    char16_t const* name;
    long long value;
  } const cases[] = {
      {2023, 2, 29, 0, 0, 0, 0, u"day", 29},      {1900, 2, 29, 0, 0, 0, 0, u"day", 29},
      {2024, 4, 31, 0, 0, 0, 0, u"day", 31},      {2024, 1, 0, 0, 0, 0, 0, u"day", 0},
      {2024, 0, 1, 0, 0, 0, 0, u"month", 0},      {2024, 13, 1, 0, 0, 0, 0, u"month", 13},
      {2024, 1, 1, 24, 0, 0, 0, u"hour", 24},     {2024, 1, 1, 0, 60, 0, 0, u"minute", 60},
      {2024, 1, 1, 0, 0, 60, 0, u"second", 60},   {2024, 1, 1, 0, 0, 0, 1000000, u"microsecond", 1000000},
      {2024, 1, 1, 0, 0, 0, -1, u"microsecond", -1}, {300001, 1, 1, 0, 0, 0, 0, u"year", 300001},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.name).toUTF8() + " " + std::to_string(c.value));
    CTime::Fields const f{c.year, c.month, c.day, c.hour, c.minute, c.second, c.micro};
    CInvalidArgError const e = expectError<CInvalidArgError>([&] { CTime::fromUTCFields(f); });
    EXPECT_EQ(e.getParams().lookupLong(c.name, 12345), c.value);
    EXPECT_TRUE(e.getMessage().Contains(u"'CTime::fromUTCFields'"));
  }
  EXPECT_EQ(CTime::fromUTCFields(CTime::Fields{2000, 2, 29}).toString(), String("2000-02-29T00:00:00.000000Z"));
  // Years just past the range.
  expectError<CInvalidArgError>([&] { CTime::fromUTCFields(CTime::Fields{294248}); });
  expectError<CInvalidArgError>([&] { CTime::fromUTCFields(CTime::Fields{-290309}); });
}

TEST(CTimeTest, ISOStringAcceptsFractionsAndOffsets) {
  struct Case {
    char const* text;
    long long micros;
  } const cases[] = {
      {"2000-01-01T00:00:00Z", 946684800000000LL},
      {"2000-01-01T00:00:00.5Z", 946684800500000LL},
      {"2000-01-01T00:00:00.123456789Z", 946684800123456LL},
      {"2000-01-01T01:30:00+01:30", 946684800000000LL},
      {"1999-12-31T23:00:00-01:00", 946684800000000LL},
      {"1970-01-01T00:00:00.000001+00:00", 1LL},
      {"+10000-01-01T00:00:00Z", 253402300800000000LL},
      {"-0001-12-31T23:59:59.999999Z", -62167219200000001LL},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(CTime::fromISOString(String(c.text)).getMicros(), c.micros);
  }
}

TEST(CTimeTest, ISOStringRefusesMalformedTextAtItsOffset) {
  struct Case {
    char const* text;
    long long offset;
  } const cases[] = {
      {"", 0},
      {"2000-01-01", 10},
      {"2000-01-01T00:00:00", 19},
      {"200-01-01T00:00:00Z", 3},
      {"2000-13-01T00:00:00Z", 5},
      {"2000-02-30T00:00:00Z", 8},
      {"2000-01-01T24:00:00Z", 11},
      {"2000-01-01T00:00:60Z", 17},
      {"2000-01-01T00:00:00.Z", 20},
      {"2000-01-01T00:00:00.1234567890Z", 29},
      {"2000-01-01T00:00:00Zx", 20},
      {"2000-01-01 00:00:00Z", 10},
      {"2000-01-01t00:00:00z", 10},
      {"2000-01-01T00:00:00+0100", 22},
      {"999999-01-01T00:00:00Z", 0},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    CParseError const e = expectError<CParseError>([&] { CTime::fromISOString(String(c.text)); });
    EXPECT_EQ(e.getMessage(), String("Cannot read the text as an ISO 8601 time."));
    EXPECT_EQ(e.getParams().lookup(u"text"), String(c.text));
    EXPECT_EQ(e.getParams().lookupLong(u"offset", -1), c.offset);
  }
}

TEST(CTimeTest, InvalidPropagatesAndConvertsToSentinels) {
  CTime const bad = CTime::invalid();
  CTime const good = CTime::fromSeconds(10);
  EXPECT_FALSE(bad.isValid());
  EXPECT_EQ(bad, CTime());
  EXPECT_EQ(CTime::fromMicros(LLONG_MIN), bad);
  EXPECT_EQ(CTime::fromMicros(bad.getMicros()), bad);
  EXPECT_EQ(bad.getMicros(), LLONG_MIN);
  EXPECT_EQ(bad.getSeconds(), LLONG_MIN);
  EXPECT_EQ(bad.getCTime(), LLONG_MIN);
  EXPECT_EQ(bad.getWindowsFileTimeUTC(), 0);
  EXPECT_TRUE(std::isnan(bad.getSecondsDouble()));
  EXPECT_EQ(bad.toString(), String("invalid"));
  expectError<CInvalidArgError>([&] { bad.getUTCFields(); });
  EXPECT_FALSE((bad + CTimeSpan::fromSeconds(1)).isValid());
  EXPECT_FALSE((good + CTimeSpan::invalid()).isValid());
  EXPECT_FALSE((good - CTimeSpan::invalid()).isValid());
  EXPECT_FALSE((bad - good).isValid());
  EXPECT_FALSE((good - bad).isValid());
  EXPECT_LT(bad, CTime::fromMicros(-kMax));
}

TEST(CTimeTest, ArithmeticWithSpansThrowsOnOverflowInsteadOfWrapping) {
  CTime const t = CTime::fromSeconds(946684800);
  CTime u = t + CTimeSpan::fromHours(25);
  EXPECT_EQ(u.toString(), String("2000-01-02T01:00:00.000000Z"));
  EXPECT_EQ(u - t, CTimeSpan::fromHours(25));
  EXPECT_EQ(t - u, CTimeSpan::fromHours(-25));
  u -= CTimeSpan::fromMicros(1);
  EXPECT_EQ(u.toString(), String("2000-01-02T00:59:59.999999Z"));
  EXPECT_LT(t, u);
  CTime const top = CTime::fromMicros(kMax);
  CTime const bottom = CTime::fromMicros(-kMax);
  CInvalidArgError e = expectError<CInvalidArgError>([&] { top + CTimeSpan::fromMicros(1); });
  EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'CTime::operator+': the time value is out of range."));
  EXPECT_EQ(e.getParams().lookupLong(u"value", 0), kMax);
  EXPECT_EQ(e.getParams().lookupLong(u"operand", 0), 1);
  // One below the lowest valid time would be the invalid marker.
  expectError<CInvalidArgError>([&] { bottom - CTimeSpan::fromMicros(1); });
  expectError<CInvalidArgError>([&] { top - bottom; });
  e = expectError<CInvalidArgError>([&] { CTime::fromSeconds(kMax / 1000000 + 1); });
  EXPECT_EQ(e.getMessage(), String("Invalid argument passed to 'CTime::fromSeconds': the time value is out of range."));
  EXPECT_EQ(CTime::fromSeconds(kMax / 1000000).getSeconds(), kMax / 1000000);
  expectError<CInvalidArgError>([&] { CTime::fromCTime(-(kMax / 1000000) - 1); });
  expectError<CInvalidArgError>([&] { top.getWindowsFileTimeUTC(); });
  expectError<CInvalidArgError>([&] { bottom.getWindowsFileTimeUTC(); });
}

TEST(CTimeTest, SecondsDoubleRoundsToTheNearestMicrosecond) {
  EXPECT_EQ(CTime::fromSecondsDouble(1.5).getMicros(), 1500000);
  EXPECT_EQ(CTime::fromSecondsDouble(-0.0000004).getMicros(), 0);
  EXPECT_EQ(CTime::fromSecondsDouble(-0.0000006).getMicros(), -1);
  EXPECT_DOUBLE_EQ(CTime::fromMicros(-1500000).getSecondsDouble(), -1.5);
  for (double bad : {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e13}) {
    SCOPED_TRACE(bad);
    CInvalidArgError const e = expectError<CInvalidArgError>([&] { CTime::fromSecondsDouble(bad); });
    EXPECT_TRUE(e.getMessage().Contains(u"'CTime::fromSecondsDouble'"));
    EXPECT_FALSE(e.getParams().lookup(u"seconds").isEmpty());
  }
}

TEST(CTimeTest, NowReadsTheSystemClock) {
  auto micros = [] {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  long long const before = micros();
  CTime const now = CTime::now();
  long long const after = micros();
  EXPECT_LE(before, now.getMicros());
  EXPECT_LE(now.getMicros(), after);
  EXPECT_GT(now, CTime::fromISOString(u"2020-01-01T00:00:00Z"));
}

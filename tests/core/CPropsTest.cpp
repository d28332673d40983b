#include "qo/core/CProps.h"

#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "qo/core/CParseError.h"

using qo::CParseError;
using qo::CProps;
using qo::String;

TEST(CPropsTest, AddLookupRemoveAndCopy) {
  CProps props;
  props.add(u"key", u"first").add(u"key", u"second").add(u"empty", String());
  EXPECT_EQ(props.getSize(), 2);
  EXPECT_EQ(props.lookup(u"key"), String(u"second"));  // the same key twice keeps the second value
  // An absent key reads as empty but is distinct from an empty value.
  EXPECT_EQ(props.lookup(u"missing"), String());
  EXPECT_FALSE(props.contains(u"missing"));
  EXPECT_TRUE(props.contains(u"empty"));
  CProps cond;
  cond.addCond(false, u"no", u"1").addCond(true, u"yes", u"2");
  EXPECT_EQ(cond.toString(), String(u"'yes'='2'"));
  // addAll merges with the other values winning.
  CProps target;
  target.add(u"a", u"old").add(u"keep", u"k");
  CProps other;
  other.add(u"a", u"new").add(u"z", u"zz");
  target.addAll(other);
  EXPECT_EQ(target.toString(), String(u"'a'='new', 'keep'='k', 'z'='zz'"));
  target.addAll(target);
  EXPECT_EQ(target.getSize(), 3);
  CProps copy = target;
  copy.add(u"a", u"2").add(u"b", u"3");
  EXPECT_EQ(target.lookup(u"a"), String(u"new"));
  EXPECT_EQ(copy.getRefCountForDebugging(), 1);
  EXPECT_TRUE(target.remove(u"a"));
  EXPECT_FALSE(target.remove(u"a"));
  EXPECT_EQ(target.toString(), String(u"'keep'='k', 'z'='zz'"));
  target.clear();
  EXPECT_TRUE(target.isEmpty());
}

TEST(CPropsTest, EntriesFollowOrdinalKeyOrderNotInsertionOrder) {
  CProps props;
  // Ordinal: upper case before lower case, "a" before "aa", U+00E9 last.
  props.add(u"b", u"2").add(u"\u00e9", u"5").add(u"aa", u"4").add(u"a", u"1").add(u"B", u"3");
  std::vector<String> keys;
  for (auto const& entry : props) keys.push_back(entry.first);
  EXPECT_EQ(keys, (std::vector<String>{u"B", u"a", u"aa", u"b", u"\u00e9"}));
  CProps twoKeys;
  twoKeys.add(u"b", u"x").add(u"a", u"y");
  EXPECT_EQ(twoKeys.toString(), String(u"'a'='y', 'b'='x'"));
}

TEST(CPropsTest, AddBoolAndAddLongStoreTheirTexts) {
  CProps props;
  props.addBool(u"t", true).addBool(u"f", false);
  props.addLong(u"zero", 0).addLong(u"neg", -42).addLong(u"max", LLONG_MAX).addLong(u"min", LLONG_MIN);
  EXPECT_EQ(props.toString(), String(u"'f'='false', 'max'='9223372036854775807', 'min'='-9223372036854775808', "
                                     u"'neg'='-42', 't'='true', 'zero'='0'"));
}

TEST(CPropsTest, LookupBoolAcceptsWordsAndDigitsOnly) {
  struct Case {
    char16_t const* value;
    int expected;  // 1 true, 0 false, -1 default
  } const cases[] = {
      {u"true", 1},  {u"TRUE", 1},   {u"tRuE", 1},   {u"1", 1},      {u"false", 0}, {u"False", 0},
      {u"0", 0},     {u"", -1},      {u" true", -1}, {u"true ", -1}, {u"yes", -1},  {u"01", -1},
      {u"2", -1},    {u"truex", -1}, {u"tru", -1},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.value).toUTF8());
    CProps props;
    props.add(u"k", c.value);
    if (c.expected >= 0) {
      EXPECT_EQ(props.lookupBool(u"k", false), c.expected == 1);
      EXPECT_EQ(props.lookupBool(u"k", true), c.expected == 1);
    } else {
      EXPECT_FALSE(props.lookupBool(u"k", false));
      EXPECT_TRUE(props.lookupBool(u"k", true));
    }
  }
  CProps empty;
  EXPECT_TRUE(empty.lookupBool(u"absent", true));
  EXPECT_FALSE(empty.lookupBool(u"absent", false));
}

TEST(CPropsTest, LookupLongParsesSignedDecimalOrGivesDefault) {
  long long const kDefault = 777;
  struct Case {
    char16_t const* value;
    bool valid;
    long long expected;
  } const cases[] = {
      {u"0", true, 0},
      {u"-0", true, 0},
      {u"+15", true, 15},
      {u"-15", true, -15},
      {u"007", true, 7},
      {u"9223372036854775807", true, LLONG_MAX},
      {u"-9223372036854775808", true, LLONG_MIN},
      {u"9223372036854775808", false, 0},
      {u"-9223372036854775809", false, 0},
      {u"99999999999999999999", false, 0},
      {u"", false, 0},
      {u"-", false, 0},
      {u"+", false, 0},
      {u" 1", false, 0},
      {u"1 ", false, 0},
      {u"1.5", false, 0},
      {u"0x10", false, 0},
      {u"--1", false, 0},
      {u"\uff11", false, 0},  // full-width digit one
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.value).toUTF8());
    CProps props;
    props.add(u"n", c.value);
    EXPECT_EQ(props.lookupLong(u"n", kDefault), c.valid ? c.expected : kDefault);
  }
  EXPECT_EQ(CProps().lookupLong(u"absent", -5), -5);
}

TEST(CPropsTest, ToStringEscapesAndTextRoundTripsAnyKeysAndValues) {
  CProps props;
  props.add(u"k'ey", u"a\\b'c\nd\re\tf=,g");
  EXPECT_EQ(props.toString(), String(u"'k\\'ey'='a\\\\b\\'c\\nd\\re\\tf=,g'"));
  String const loneHigh(1, u'\xd800');
  String const loneLow(1, u'\xdc00');
  std::vector<std::pair<String, String>> const nasty = {
      {String(), String()},
      {u"'", u"''"},
      {u"\\", u"\\'"},
      {u"a=b", u"c=d"},
      {u"x, 'y'='z'", u", "},
      {u"line\nbreak", u"cr\rlf\r\n"},
      {u"tab\t", u"\t"},
      {u"\u00e4\u00f6\u00fc", u"\u65e5\u672c"},
      {u"\U0001F600", u"pair \U0001F600"},
      {loneHigh, loneLow},
      {u"lone" + loneLow, loneHigh + u"end"},
      {String(1, u'\0') + u"nul", String(1, u'\0')},
      {u" spaced ", u"  "},
      {u"\\n", u"\\t"},
  };
  // Each entry alone and all of them in one bag.
  CProps all;
  for (auto const& kv : nasty) {
    SCOPED_TRACE(kv.first.toUTF8Lossy());
    CProps one;
    one.add(kv.first, kv.second);
    all.add(kv.first, kv.second);
    CProps back = CProps::fromString(one.toString());
    EXPECT_EQ(back, one);
    EXPECT_EQ(back.lookup(kv.first), kv.second);
  }
  EXPECT_EQ(all.getSize(), static_cast<int>(nasty.size()));
  EXPECT_EQ(CProps::fromString(all.toString()), all);
}

TEST(CPropsTest, FromStringAcceptsBlanksAndKeepsLastDuplicate) {
  EXPECT_EQ(CProps().toString(), String());
  EXPECT_EQ(CProps::fromString(String()).getSize(), 0);
  EXPECT_EQ(CProps::fromString(u"  \t ").getSize(), 0);
  CProps props = CProps::fromString(u" 'a' = '1' ,\t'b'='2','a'='3' ");
  EXPECT_EQ(props.getSize(), 2);
  EXPECT_EQ(props.lookup(u"a"), String(u"3"));
  EXPECT_EQ(props.lookup(u"b"), String(u"2"));
}

TEST(CPropsTest, FromStringRefusesMalformedTextWithOffset) {
  struct Case {
    char16_t const* text;
    long long offset;
  } const cases[] = {
      {u"a", 0},                // key not quoted
      {u"'a'", 3},              // '=' missing
      {u"'a'=", 4},             // value missing
      {u"'a'='1", 6},           // value not closed
      {u"'a'='1' 'b'='2'", 8},  // ',' missing
      {u"'a'='1',", 8},         // entry missing after ','
      {u"'a'='\\x'", 6},        // unknown escape
      {u"'a'='1\\", 7},         // escape at the end
      {u"'a'='1'x", 7},         // trailing text
      {u"'a'=1", 4},            // value not quoted
      {u",", 0},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text).toUTF8());
    try {
      CProps::fromString(c.text);
      ADD_FAILURE() << "no exception";
    } catch (CParseError const& e) {
      EXPECT_EQ(e.getMessage(), String(u"Malformed property text."));
      EXPECT_EQ(e.getParams().lookupLong(u"offset", -1), c.offset);
    }
  }
}

// CCommandLine: exact quoting, the system parser's splitting rules, round
// trips of random argument lists, and agreement with CommandLineToArgvW
// where the system has it (Windows, and so Wine).
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CNotImplementedError.h"
#include "qo/sys/CCommandLine.h"

namespace qo {
namespace {

using Args = std::vector<String>;

std::string show(Args const& args) {
  std::string out;
  for (String const& a : args) out += "[" + a.toUTF8() + "]";
  return out;
}

TEST(CCommandLine, QuotesArgumentsExactly) {
  struct Case {
    char16_t const* argument;
    char16_t const* quoted;
  } const cases[] = {
      {u"", u"\"\""},
      {u"abc", u"abc"},
      {u"a\\b", u"a\\b"},
      {u"trailing\\", u"trailing\\"},
      {u"\\\\server\\share", u"\\\\server\\share"},
      {u"a b", u"\"a b\""},
      {u"a\tb", u"\"a\tb\""},
      {u"line\nbreak", u"\"line\nbreak\""},
      {u"a\"b", u"\"a\\\"b\""},
      {u"\"", u"\"\\\"\""},
      {u"a\\\"b", u"\"a\\\\\\\"b\""},
      {u"a b\\", u"\"a b\\\\\""},
      {u"a\\\\ b\\\\", u"\"a\\\\ b\\\\\\\\\""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.argument).toUTF8());
    EXPECT_EQ(String(c.quoted), CCommandLine::quoteArgument(String(c.argument)));
  }
  EXPECT_EQ(String(u"\"C:\\Program Files\\x.exe\" \"a b\" \"q\\\"\" end\\"),
            CCommandLine::quote({u"C:\\Program Files\\x.exe", u"a b", u"q\"", u"end\\"}));
  EXPECT_EQ(String(u"\"\" x"), CCommandLine::quote({u"", u"x"}));
  EXPECT_EQ(String(), CCommandLine::quote({}));
  EXPECT_EQ(String(u"\"\" \"\""), CCommandLine::quoteArguments({u"", u""}));
}

// Lines that exercise every rule; the expectations are the system parser's
// answers (checked against it by MatchesTheSystemParser).
struct ParseCase {
  char16_t const* line;
  Args argv;
};
std::vector<ParseCase> const& parseCases() {
  static std::vector<ParseCase> const cases = {
      {u"prog a b", {u"prog", u"a", u"b"}},
      {u"\"C:\\Program Files\\x.exe\" a", {u"C:\\Program Files\\x.exe", u"a"}},
      {u"\"a b\"c d", {u"a b", u"c", u"d"}},
      {u"C:\\dir\\\"x y\" z", {u"C:\\dir\\\"x", u"y z"}},
      {u"  x", {u"", u"x"}},
      {u"\"prog", {u"prog"}},
      {u"\"\" \"\"", {u"", u""}},
      {u"p\targ\t\t", {u"p", u"arg"}},
      {u"p a\\\\\\\"b", {u"p", u"a\\\"b"}},
      {u"p a\\\\\\\\\"b c\"", {u"p", u"a\\\\b c"}},
      {u"p a\\ b", {u"p", u"a\\", u"b"}},
      {u"p \\\\\"a b\\\\\"", {u"p", u"\\a b\\"}},
      {u"p \"unterminated arg", {u"p", u"unterminated arg"}},
      {u"p \"a\"\"b\"", {u"p", u"a\"b"}},
      {u"p \"a\"\"b c\"", {u"p", u"a\"b", u"c"}},
      {u"p \"\"\"\"", {u"p", u"\""}},
      {u"p \"\"\"a b\"\"\"", {u"p", u"\"a", u"b\""}},
      {u"p a\"b c\"d e", {u"p", u"ab cd", u"e"}},
      {u"p \\\"\"a b", {u"p", u"\"a b"}},
      {u"p \"\\\"\" x", {u"p", u"\"", u"x"}},
      {u"p ü \"✓ ∑\"", {u"p", u"ü", u"✓ ∑"}},
  };
  return cases;
}

TEST(CCommandLine, ParsesByTheSystemRules) {
  for (ParseCase const& c : parseCases()) {
    SCOPED_TRACE(String(c.line).toUTF8());
    EXPECT_EQ(show(c.argv), show(CCommandLine::parse(String(c.line))));
  }
  EXPECT_TRUE(CCommandLine::parse(String()).empty());
  EXPECT_TRUE(CCommandLine::parseArguments(u" \t ").empty());
  EXPECT_EQ(show({u"", u"a b"}), show(CCommandLine::parseArguments(u" \"\" \"a b\" ")));
}

// Random lists over the characters that matter to quoting.
Args randomList(std::mt19937& rng, bool allowQuoteInFirst) {
  static char16_t const alphabet[] = {u'a', u' ', u'\t', u'"', u'\\', u'\n', u'\v', u'\u00E9', u'x'};
  Args list(rng() % 6);
  for (std::size_t i = 0; i < list.size(); ++i) {
    std::u16string text(rng() % 9, u'a');
    for (char16_t& c : text) {
      c = alphabet[rng() % (sizeof alphabet / sizeof alphabet[0])];
      if (i == 0 && !allowQuoteInFirst && c == u'"') c = u'\\';
    }
    list[i] = String(std::move(text));
  }
  return list;
}

TEST(CCommandLine, QuotingThenParsingIsARoundTrip) {
  std::mt19937 rng(20261124);
  for (int i = 0; i < 3000; ++i) {
    Args const list = randomList(rng, true);
    SCOPED_TRACE(show(list));
    ASSERT_EQ(show(list), show(CCommandLine::parseArguments(CCommandLine::quoteArguments(list))));
    bool const quoteInProgram = !list.empty() && list[0].Contains(u"\"");
    if (quoteInProgram) {
      EXPECT_THROW(CCommandLine::quote(list), CInvalidArgError);
    } else {
      ASSERT_EQ(show(list), show(CCommandLine::parse(CCommandLine::quote(list))));
    }
  }
}

TEST(CCommandLine, MatchesTheSystemParser) {
  if (!CCommandLine::hasSystemParser()) {
    EXPECT_THROW(CCommandLine::parseWithSystem(u"a b"), CNotImplementedError);
    GTEST_SKIP() << "this system has no CommandLineToArgvW to compare with (Windows and Wine have)";
  }
  for (ParseCase const& c : parseCases()) {
    SCOPED_TRACE(String(c.line).toUTF8());
    EXPECT_EQ(show(CCommandLine::parseWithSystem(String(c.line))), show(CCommandLine::parse(String(c.line))));
  }
  std::mt19937 rng(7);
  for (int i = 0; i < 500; ++i) {
    Args list = randomList(rng, false);
    if (list.empty() || list[0].isEmpty()) continue;  // the system answers an empty line with its own path
    String const line = CCommandLine::quote(list);
    SCOPED_TRACE(line.toUTF8());
    ASSERT_EQ(show(list), show(CCommandLine::parseWithSystem(line)));
  }
}

}  // namespace
}  // namespace qo

#include "qo/core/String.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/core/CParseError.h"
#include "qo/core/CUnencodableStringError.h"

using qo::String;

namespace {

// Runs f, expects it to throw E and returns a copy of the error.
template <typename E, typename F>
E expectThrow(F f) {
  try {
    f();
  } catch (E const& e) {
    return e;
  } catch (std::exception const& e) {
    ADD_FAILURE() << "wrong exception: " << e.what();
    throw;
  }
  ADD_FAILURE() << "nothing thrown";
  throw std::runtime_error("nothing thrown");
}

std::string hex(std::string const& bytes) {
  std::string text;
  char buf[4];
  for (unsigned char b : bytes) {
    std::snprintf(buf, sizeof buf, "%02X ", b);
    text += buf;
  }
  return text;
}

struct Utf8Case {
  std::string bytes;
  std::u16string units;
};

}  // namespace

TEST(StringTest, Utf8WellFormedRoundTrips) {
  Utf8Case const cases[] = {
      {"", u""},
      {"a", u"a"},
      {"caf\xC3\xA9", u"caf\u00E9"},
      {"\xC2\x80", u"\u0080"},
      {"\xDF\xBF", u"\u07FF"},
      {"\xE0\xA0\x80", u"\u0800"},
      {"\xED\x9F\xBF", u"\uD7FF"},
      {"\xEE\x80\x80", u"\uE000"},
      {"\xEF\xBF\xBF", u"\uFFFF"},
      {"\xF0\x90\x80\x80", u"\xD800\xDC00"},
      {"\xF0\x9F\x98\x80", u"\xD83D\xDE00"},
      {"\xF4\x8F\xBF\xBF", u"\xDBFF\xDFFF"},
      {std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
      {"0123456789abcdef\xE2\x82\xAC" "0123456789", u"0123456789abcdef\u20AC0123456789"},
  };
  for (Utf8Case const& c : cases) {
    SCOPED_TRACE(hex(c.bytes));
    EXPECT_EQ(String::fromUTF8(c.bytes).str(), c.units);
    EXPECT_EQ(String(c.units).toUTF8(), c.bytes);
    EXPECT_EQ(String::wstringFromUTF8WithLatin1Fallback(c.bytes).str(), c.units);
  }
}

TEST(StringTest, Utf8IllFormedThrowsParseErrorWithOffset) {
  struct Case {
    std::string bytes;
    long long offset;
  } const cases[] = {
      {"\xC0\x80", 0},                  // overlong NUL
      {"\xC1\xBF", 0},                  // overlong two-byte
      {"ab\xE0\x80\x80", 2},            // overlong three-byte
      {"\xF0\x8F\xBF\xBF", 0},          // overlong four-byte
      {"\xED\xA0\x80", 0},              // encoded high surrogate
      {"x\xED\xBF\xBF", 1},             // encoded low surrogate
      {"\xF4\x90\x80\x80", 0},          // U+110000
      {"\xF5\x80\x80\x80", 0},
      {"\xFF", 0},
      {"x\xE2\x82", 1},                 // truncated at the end
      {"\xE2\x82" "A", 0},              // truncated before ASCII
      {"\xF0\x9F\x98", 0},
      {"\x80", 0},                      // stray continuation
      {"\xC3\xA9\xA9", 2},              // continuation after a complete sequence
      {"0123456789abcdef\xBF", 16},     // after the ASCII fast path
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(hex(c.bytes));
    auto const e = expectThrow<qo::CParseError>([&] { String::fromUTF8(c.bytes); });
    EXPECT_EQ(e.getParams().lookupLong("offset", -1), c.offset);
    EXPECT_EQ(e.getMessage(), String(u"Invalid UTF-8 text."));
  }
  // The offset is exact around the ASCII blocks.
  for (std::size_t pos = 0; pos < 40; ++pos) {
    SCOPED_TRACE(pos);
    std::string bytes(pos, 'x');
    bytes += "\xE2\x28\xA1yyyyyyyyyy";
    auto const e = expectThrow<qo::CParseError>([&] { String::fromUTF8(bytes); });
    EXPECT_EQ(e.getParams().lookupLong("offset", -1), static_cast<long long>(pos));
  }
}

TEST(StringTest, EveryScalarValueRoundTripsThroughUtf8AndUtf32) {
  std::u32string all;
  std::size_t utf8Size = 0;
  for (char32_t c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    all += c;
    utf8Size += c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
  }
  String const text = String::fromUTF32(all);
  EXPECT_EQ(text.length(), all.size() + 0x100000);  // one extra unit per supplementary character
  std::string const utf8 = text.toUTF8();
  EXPECT_EQ(utf8.size(), utf8Size);
  String const back = String::fromUTF8(utf8);
  EXPECT_TRUE(back == text);
  EXPECT_TRUE(back.toUTF32() == all);
  EXPECT_TRUE(String::wstringFromUTF8WithLatin1Fallback(utf8) == text);
}

TEST(StringTest, RandomBytesDecodeConsistently) {
  // Bytes drawn mostly from lead and continuation values, so that most
  // strings hold both well-formed and ill-formed sequences.
  unsigned seed = 12345;
  auto next = [&seed] { return (seed = seed * 1103515245u + 12345u) >> 16; };
  unsigned char const palette[] = {'a', 0x80, 0xBF, 0xA0, 0x9F, 0x90, 0x8F, 0xC2, 0xC0,
                                   0xDF, 0xE0, 0xED, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
  int strictOk = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string bytes(next() % 12, '\0');
    for (char& b : bytes) b = static_cast<char>(palette[next() % sizeof palette]);
    SCOPED_TRACE(hex(bytes));
    String const lenient = String::wstringFromUTF8WithLatin1Fallback(bytes);
    try {
      String const strict = String::fromUTF8(bytes);
      ++strictOk;
      EXPECT_EQ(strict, lenient);
      EXPECT_EQ(strict.toUTF8(), bytes);
    } catch (qo::CParseError const& e) {
      // Everything before the offset is well-formed and decodes alike.
      auto const offset = static_cast<std::size_t>(e.getParams().lookupLong("offset", -1));
      ASSERT_LT(offset, bytes.size());
      String const head = String::fromUTF8(bytes.substr(0, offset));
      EXPECT_TRUE(lenient.StartsWith(head));
      EXPECT_EQ(lenient[head.length()], static_cast<unsigned char>(bytes[offset]));
    }
    EXPECT_EQ(String::fromUTF8(lenient.toUTF8()), lenient);
  }
  EXPECT_GT(strictOk, 100);
}

TEST(StringTest, SurrogatePairIsOneCharacterInEveryEncoding) {
  String const grin(u"a\xD83D\xDE00z");
  EXPECT_EQ(grin.toUTF8(), "a\xF0\x9F\x98\x80z");
  EXPECT_EQ(grin.toUTF32(), std::u32string(U"a\U0001F600z"));
  EXPECT_EQ(String::fromUTF32(U"a\U0001F600z"), grin);
  EXPECT_EQ(String(L"a\U0001F600z"), grin);
  EXPECT_EQ(grin.toWString(), std::wstring(L"a\U0001F600z"));
  EXPECT_EQ(String(grin.toWString().c_str()), grin);
}

TEST(StringTest, LoneSurrogatesAreUnencodableExceptLossy) {
  struct Case {
    std::u16string units;
    long long offset;
    std::string lossy;
  } const cases[] = {
      {u"\xD800", 0, "\xEF\xBF\xBD"},
      {u"a\xDC00", 1, "a\xEF\xBF\xBD"},
      {u"ab\xD83D", 2, "ab\xEF\xBF\xBD"},
      {u"\xDE00\xD83D", 0, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {u"\xD83D\xD83D\xDE00", 0, "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
  };
  for (auto const& c : cases) {
    String const text(c.units);
    SCOPED_TRACE(c.lossy);
    auto const e = expectThrow<qo::CUnencodableStringError>([&] { text.toUTF8(); });
    EXPECT_EQ(e.getParams().lookupLong("offset", -1), c.offset);
    EXPECT_EQ(text.toUTF8Lossy(), c.lossy);
    expectThrow<qo::CUnencodableStringError>([&] { text.toUTF32(); });
    // The platform's wide text keeps what it can: UTF-16 units as they are,
    // UTF-32 with U+FFFD.
    EXPECT_EQ(String(text.toWString()).toUTF8Lossy(), c.lossy);
  }
}

TEST(StringTest, Utf32RejectsNonScalarValues) {
  struct Case {
    std::u32string units;
    long long offset;
  } const cases[] = {
      {std::u32string(1, 0xD800), 0},
      {U"ab" + std::u32string(1, 0xDFFF), 2},
      {U"a" + std::u32string(1, 0x110000), 1},
      {std::u32string(1, 0xFFFFFFFF), 0},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.offset);
    auto const e = expectThrow<qo::CParseError>([&] { String::fromUTF32(c.units); });
    EXPECT_EQ(e.getParams().lookupLong("offset", -1), c.offset);
  }
}

TEST(StringTest, WideTextOfInvalidValuesBecomesReplacementCharacter) {
  if constexpr (sizeof(wchar_t) == 4) {
    std::wstring const wide{L'a', static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), L'b'};
    EXPECT_EQ(String(wide.c_str()), String(u"a\uFFFD\uFFFDb"));
    EXPECT_EQ(String(std::u16string(u"x\xDC00")).toWString(), std::wstring(L"x\uFFFD"));
  } else {
    std::wstring const wide{L'a', static_cast<wchar_t>(0xD800), L'b'};
    EXPECT_EQ(String(wide.c_str()).str(), std::u16string(u"a\xD800" "b"));
  }
  EXPECT_EQ(String(static_cast<wchar_t const*>(nullptr)), String());
}

TEST(StringTest, Latin1FallbackTakesBadBytesAsLatin1AndLatin1BothWays) {
  Utf8Case const cases[] = {
      {"caf\xE9", u"caf\u00E9"},
      {"caf\xC3\xA9 \xE9t\xE9", u"caf\u00E9 \u00E9t\u00E9"},
      {"\xC3", u"\u00C3"},
      {"\xC3(", u"\u00C3("},
      {"\xC0\x80", u"\u00C0\u0080"},
      {"\xED\xA0\x80", u"\u00ED\u00A0\u0080"},
      {"\xF4\x90\x80\x80", u"\u00F4\u0090\u0080\u0080"},
      {"\xF0\x9F\x98\x80\xFF", u"\xD83D\xDE00\u00FF"},
      {"\xE2\x82\xE2\x82\xAC", u"\u00E2\u0082\u20AC"},
  };
  for (Utf8Case const& c : cases) {
    SCOPED_TRACE(hex(c.bytes));
    EXPECT_EQ(String::wstringFromUTF8WithLatin1Fallback(c.bytes).str(), c.units);
    EXPECT_EQ(String(c.bytes.c_str()).str(), c.units);
    EXPECT_EQ(String(std::string_view(c.bytes)).str(), c.units);
  }
  for (int b = 0x80; b <= 0xFF; ++b) {
    SCOPED_TRACE(b);
    std::string const one(1, static_cast<char>(b));
    EXPECT_EQ(String::wstringFromUTF8WithLatin1Fallback(one).str(), std::u16string(1, static_cast<char16_t>(b)));
  }
  EXPECT_EQ(String(static_cast<char const*>(nullptr)), String());
  std::string all;
  std::u16string units;
  for (int b = 0; b < 256; ++b) {
    all += static_cast<char>(b);
    units += static_cast<char16_t>(b);
  }
  EXPECT_EQ(String::fromLatin1(all).str(), units);
  EXPECT_EQ(String(units).toLatin1(), all);
  auto const e = expectThrow<qo::CUnencodableStringError>([] { String(u"ab\u0100").toLatin1(); });
  EXPECT_EQ(e.getParams().lookupLong("offset", -1), 2);
  expectThrow<qo::CUnencodableStringError>([] { String(u"\u20AC").toLatin1(); });
}

struct CodePageCase {
  unsigned codePage;
  std::u16string text;
  std::string bytes;
};

TEST(StringTest, CodePagesBothWaysWithExactBytesAndRefuseWhatTheyCannotHold) {
  CodePageCase const cases[] = {
      {1252, u"\u20AC", "\x80"},
      {1252, u"\u0161", "\x9A"},
      {1252, u"caf\u00E9 \u201Cq\u201D \u2026", "caf\xE9 \x93q\x94 \x85"},
      {437, u"\u00E9", "\x82"},
      {437, u"\u2500", "\xC4"},
      {437, u"\u250C\u2500\u2510 \u00C4\u00E4", "\xDA\xC4\xBF \x8E\x84"},
      {850, u"\u00E9\u00D8", "\x82\x9D"},
      {1251, u"\u0416", "\xC6"},
      {28591, u"\u00FF", "\xFF"},
      {65001, u"\u20AC\xD83D\xDE00", "\xE2\x82\xAC\xF0\x9F\x98\x80"},
      {1252, u"", ""},
  };
  for (CodePageCase const& c : cases) {
    SCOPED_TRACE(c.codePage);
    SCOPED_TRACE(hex(c.bytes));
    EXPECT_EQ(String(c.text).toCP(c.codePage), c.bytes);
    EXPECT_EQ(String::fromCP(c.bytes, c.codePage).str(), c.text);
  }
  struct Refused {
    unsigned codePage;
    std::u16string text;
  } const refused[] = {
      {1252, u"a\u4E2D"},   // no best fit either
      {1252, u"\u0100"},    // A with macron: best fit would give "A"
      {437, u"\u20AC"},
      {1252, u"\xD800"},
      {65001, u"\xDC00"},
  };
  for (auto const& c : refused) {
    SCOPED_TRACE(c.codePage);
    auto const e = expectThrow<qo::CUnencodableStringError>([&] { String(c.text).toCP(c.codePage); });
    EXPECT_EQ(e.getParams().lookupLong("codePage", -1), static_cast<long long>(c.codePage));
  }
}

TEST(StringTest, CodePageDecodingRejectsInvalidBytesAndUnknownPages) {
  // A Shift-JIS lead byte without its trail byte.
  auto const sjis = expectThrow<qo::CParseError>([] { String::fromCP("a\x82", 932); });
  EXPECT_EQ(sjis.getParams().lookupLong("offset", -1), 1);
  EXPECT_EQ(sjis.getParams().lookupLong("codePage", -1), 932);
  auto const utf8 = expectThrow<qo::CParseError>([] { String::fromCP("ok\xC0\x80", 65001); });
  EXPECT_EQ(utf8.getParams().lookupLong("offset", -1), 2);
  EXPECT_EQ(utf8.getParams().lookupLong("codePage", -1), 65001);
  EXPECT_EQ(String::fromCP("a\x82\xA0", 932).str(), u"a\u3042");
  auto const to = expectThrow<qo::CInvalidArgError>([] { String(u"x").toCP(12345); });
  EXPECT_EQ(to.getMessage(), String(u"Invalid argument passed to 'String::toCP': unknown code page 12345."));
  auto const from = expectThrow<qo::CInvalidArgError>([] { String::fromCP("x", 12345); });
  EXPECT_EQ(from.getMessage(), String(u"Invalid argument passed to 'String::fromCP': unknown code page 12345."));
  expectThrow<qo::CInvalidArgError>([] { String(u"x").toCP(0); });
}

#if !defined(_WIN32)
// The iconv tool as an independent judge of the code page tables.
static std::string iconvTool(std::string const& utf8, char const* charset) {
  char path[] = "/tmp/qo_string_test_XXXXXX";
  int const fd = mkstemp(path);
  if (fd < 0) return "<no temp file>";
  FILE* f = fdopen(fd, "wb");
  std::fwrite(utf8.data(), 1, utf8.size(), f);
  std::fclose(f);
  std::string const command = std::string("iconv -f UTF-8 -t ") + charset + " " + path + " 2>/dev/null";
  std::string bytes;
  if (FILE* p = popen(command.c_str(), "r")) {
    char buffer[256];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0) bytes.append(buffer, n);
    if (pclose(p) != 0) bytes = "<iconv failed>";
  } else {
    bytes = "<no iconv>";
  }
  std::remove(path);
  return bytes;
}

TEST(StringTest, CodePagesAgreeWithTheIconvTool) {
  if (std::system("iconv --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "no iconv tool";
  struct Case {
    unsigned codePage;
    char const* charset;
  } const cases[] = {{1252, "CP1252"}, {437, "CP437"}, {850, "CP850"}, {1250, "CP1250"}, {866, "CP866"}};
  for (auto const& c : cases) {
    SCOPED_TRACE(c.charset);
    // Every character the page holds, found by decoding each byte.
    String text;
    for (int b = 1; b < 256; ++b) {
      try {
        text += String::fromCP(std::string(1, static_cast<char>(b)), c.codePage);
      } catch (qo::CParseError const&) {
        // undefined in this page
      }
    }
    EXPECT_GT(text.length(), 200u);
    std::string const bytes = text.toCP(c.codePage);
    EXPECT_EQ(hex(bytes), hex(iconvTool(text.toUTF8(), c.charset)));
    EXPECT_EQ(String::fromCP(bytes, c.codePage), text);
  }
}
#endif

TEST(StringTest, IgnoreCaseAndCaseMappingCoverNonAsciiAndKeepLength) {
  String const text(u"\u00C4rger \u00FCber \u00D6l");
  EXPECT_TRUE(text.StartsWith(u"\u00E4RGER", true));
  EXPECT_FALSE(text.StartsWith(u"\u00E4RGER"));
  EXPECT_TRUE(text.EndsWith(u"\u00F6L", true));
  EXPECT_FALSE(text.EndsWith(u"\u00F6L"));
  EXPECT_TRUE(text.Contains(u"\u00DCBER", true));
  EXPECT_FALSE(text.Contains(u"\u00DCBER"));
  EXPECT_FALSE(text.Contains(u"\u00C4rger \u00FCber \u00D6l!", true));
  EXPECT_TRUE(text.StartsWith(u""));
  EXPECT_TRUE(text.EndsWith(u"", true));
  EXPECT_FALSE(String(u"ab").StartsWith(u"abc", true));
  EXPECT_EQ(text.Upper(), String(u"\u00C4RGER \u00DCBER \u00D6L"));
  EXPECT_EQ(text.Lower(), String(u"\u00E4rger \u00FCber \u00F6l"));
  EXPECT_EQ(String(u"\u0416\u03A9").Lower(), String(u"\u0436\u03C9"));
  // Sharp s has no one-character upper case; lone surrogates have no case.
  String const sharp(u"stra\u00DFe\xD800x\xDC00");
  EXPECT_EQ(sharp.Upper().str(), std::u16string(u"STRA\u00DFE\xD800X\xDC00"));
  EXPECT_EQ(sharp.Upper().Lower().str(), std::u16string(u"stra\u00DFe\xD800x\xDC00"));
  EXPECT_EQ(String(u"\xD83D\xDE00").Upper().str(), std::u16string(u"\xD83D\xDE00"));
}

TEST(StringTest, CompareIsOrdinalByCodeUnitAndCmpNoCaseComparesUpperCasedTexts) {
  struct Case {
    char16_t const* a;
    char16_t const* b;
    int compare;
    int noCase;
  } const cases[] = {
      {u"abc", u"ABC", 1, 0},  {u"\u00E4", u"\u00C4", 1, 0}, {u"abc", u"ABD", 1, -1}, {u"ABD", u"abc", -1, 1},
      {u"ab", u"ABC", 1, -1},  {u"", u"", 0, 0},             {u"a", u"b", -1, -1},    {u"b", u"a", 1, 1},
      {u"ab", u"ab", 0, 0},    {u"a", u"ab", -1, -1},
      {u"B", u"a", -1, 1},
      {u"_", u"a", -1, 1},  // upper-cased, 'a' is 'A' (0x41), below '_' (0x5F)
      // By unit, a surrogate pair sorts below U+E000 although its code point is higher.
      {u"\xD83D\xDE00", u"\uE000", -1, -1},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(String(c.a).toUTF8Lossy() + " vs " + String(c.b).toUTF8Lossy());
    EXPECT_EQ(String(c.a).Compare(c.b), c.compare);
    EXPECT_EQ(String(c.a).CmpNoCase(c.b), c.noCase);
  }
  EXPECT_TRUE(String(u"\xD83D\xDE00") < String(u"\uE000"));
}

TEST(StringTest, ReplaceGoesLeftToRightWithoutRescanning) {
  struct Case {
    char16_t const* text;
    char16_t const* from;
    char16_t const* to;
    char16_t const* expected;
  } const cases[] = {
      {u"aaaa", u"aa", u"b", u"bb"},
      {u"aaa", u"aa", u"b", u"ba"},
      {u"abab", u"ab", u"abab", u"abababab"},
      {u"a.b.c", u".", u"", u"abc"},
      {u"abc", u"", u"x", u"abc"},
      {u"abc", u"abcd", u"x", u"abc"},
      {u"", u"a", u"b", u""},
      {u"xaax", u"a", u"aa", u"xaaaax"},
      {u"\u00E4\u00E4", u"\u00E4", u"ae", u"aeae"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(String(c.text).toUTF8() + " " + String(c.from).toUTF8());
    EXPECT_EQ(String(c.text).Replace(c.from, c.to), String(c.expected));
  }
}

TEST(StringTest, TrimRemovesUnicodeWhiteSpace) {
  String const text(u"\u3000\u00A0 \t\r\nx \u2003y\u2028\u2029\uFEFF\u0085\u000B\u000C");
  EXPECT_EQ(text.Trim(), String(u"x \u2003y"));
  EXPECT_EQ(text.trim(), String(u"x \u2003y"));
  EXPECT_EQ(text.TrimLeft(), String(u"x \u2003y\u2028\u2029\uFEFF\u0085\u000B\u000C"));
  EXPECT_EQ(text.TrimRight(), String(u"\u3000\u00A0 \t\r\nx \u2003y"));
  EXPECT_EQ(String(u" \u3000 ").Trim(), String());
  EXPECT_EQ(String().Trim(), String());
  // Zero-width space and the control characters are not white space.
  EXPECT_EQ(String(u"\u200Bx\u0001").Trim(), String(u"\u200Bx\u0001"));
}

TEST(StringTest, LeftMidRightClampAndPadLeftFillsToWidth) {
  String const text(u"hello");
  struct Case {
    String actual;
    char16_t const* expected;
  } const cases[] = {
      {text.Left(0), u""},       {text.Left(2), u"he"},       {text.Left(5), u"hello"},
      {text.Left(99), u"hello"}, {text.Left(String::npos), u"hello"},
      {text.Mid(0), u"hello"},   {text.Mid(1, 3), u"ell"},    {text.Mid(3, 99), u"lo"},
      {text.Mid(5), u""},        {text.Mid(6, 1), u""},       {text.Mid(String::npos, String::npos), u""},
      {text.Mid(2, 0), u""},     {text.Right(0), u""},        {text.Right(2), u"lo"},
      {text.Right(5), u"hello"}, {text.Right(String::npos), u"hello"},
      {String(u"7").padLeft(3, u'0'), u"007"},         {String(u"ab").padLeft(4), u"  ab"},
      {String(u"abc").padLeft(3, u'0'), u"abc"},       {String(u"abcd").padLeft(2, u'0'), u"abcd"},
      {String().padLeft(0), u""},                      {String().padLeft(2, u'\u00B7'), u"\u00B7\u00B7"},
  };
  int i = 0;
  for (auto const& c : cases) {
    SCOPED_TRACE(i++);
    EXPECT_EQ(c.actual, String(c.expected));
  }
}

TEST(StringTest, FindAndFindLast) {
  String const text(u"abcabc");
  EXPECT_EQ(text.Find(u"bc"), 1u);
  EXPECT_EQ(text.Find(u"bc", 2), 4u);
  EXPECT_EQ(text.Find(u"bc", 5), String::npos);
  EXPECT_EQ(text.Find(u"x"), String::npos);
  EXPECT_EQ(text.Find(u'c'), 2u);
  EXPECT_EQ(text.Find(u'c', 3), 5u);
  EXPECT_EQ(text.Find(u'a', 99), String::npos);
  EXPECT_EQ(text.FindLast(u"ab"), 3u);
  EXPECT_EQ(text.FindLast(u'a'), 3u);
  EXPECT_EQ(text.FindLast(u"x"), String::npos);
  EXPECT_EQ(String().FindLast(u'x'), String::npos);
}

TEST(StringTest, IntegersAndAddressesToString) {
  EXPECT_EQ(qo::toString(0), String(u"0"));
  EXPECT_EQ(qo::toString(-1), String(u"-1"));
  EXPECT_EQ(qo::toString(LLONG_MIN), String(u"-9223372036854775808"));
  EXPECT_EQ(qo::toString(LLONG_MAX), String(u"9223372036854775807"));
  EXPECT_EQ(qo::toString(ULLONG_MAX), String(u"18446744073709551615"));
  EXPECT_EQ(qo::toString(4294967295u), String(u"4294967295"));
  // Addresses are zero-padded hex.
  EXPECT_EQ(qo::toString(static_cast<void const*>(nullptr)), String(u"0x00000000"));
  EXPECT_EQ(qo::toString(reinterpret_cast<void const*>(std::uintptr_t{0xABCDEF})), String(u"0x00abcdef"));
  if constexpr (sizeof(void*) == 8) {
    EXPECT_EQ(qo::toString(reinterpret_cast<void const*>(std::uintptr_t{0x123456789A})), String(u"0x123456789a"));
  }
}

TEST(StringTest, DoubleToStringIsShortestRoundTrip) {
  struct Case {
    double value;
    char const* text;
  } const cases[] = {
      {0.0, "0"},
      {-0.0, "-0"},
      {1.5, "1.5"},
      {-2.25, "-2.25"},
      {0.1, "0.1"},
      {0.1 + 0.2, "0.30000000000000004"},
      {1.0 / 3.0, "0.3333333333333333"},
      {1e100, "1e+100"},
      {123456789.0, "123456789"},
      {1e-7, "1e-07"},
      {DBL_MAX, "1.7976931348623157e+308"},
      {DBL_MIN, "2.2250738585072014e-308"},
      {5e-324, "4.94065645841247e-324"},
      {9007199254740993.0, "9007199254740992"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.text);
    String const text = qo::toString(c.value);
    EXPECT_EQ(text.toUTF8(), c.text);
    EXPECT_EQ(std::strtod(text.toUTF8().c_str(), nullptr), c.value);
  }
  EXPECT_EQ(qo::toString(HUGE_VAL), String(u"inf"));
  EXPECT_EQ(qo::toString(-HUGE_VAL), String(u"-inf"));
}

TEST(StringTest, StreamsWriteUtf8AndConstructionFromNullAndLengths) {
  std::ostringstream out;
  out << String(u"caf\u00E9 \xD800");
  EXPECT_EQ(out.str(), "caf\xC3\xA9 \xEF\xBF\xBD");
  std::ostringstream printed;
  qo::PrintTo(String(u"a\"\\\n\u00E9\xD83D\xDE00\xDC00"), &printed);
  EXPECT_EQ(printed.str(), "u\"a\\\"\\\\\\u000A\xC3\xA9\xF0\x9F\x98\x80\\uDC00\"");
  EXPECT_EQ(String(static_cast<char16_t const*>(nullptr)), String());
  EXPECT_EQ(String(static_cast<char16_t const*>(nullptr), 0), String());
  EXPECT_EQ(String(u"abc", 2), String(u"ab"));
  EXPECT_EQ(String(std::u16string_view(u"a\0b", 3)).length(), 3u);
  EXPECT_EQ(String(3, u'x'), String(u"xxx"));
  EXPECT_EQ(String(u"ab") + u"c" + u'd' + String(u"e"), String(u"abcde"));
  EXPECT_EQ(String("abc").getLength(), 3);
}

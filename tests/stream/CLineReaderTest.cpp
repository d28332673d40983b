#include "qo/stream/CLineReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qo/core/TBuffer.h"
#include "qo/stream/CBufferStream.h"

using qo::CBufferStream;
using qo::CLineReader;
using qo::P;
using qo::String;
using qo::TBuffer;

namespace {
P<CBufferStream> streamOf(std::string const& text) {
  P<TBuffer<unsigned char>> bytes = qo::newP<TBuffer<unsigned char>>(
      reinterpret_cast<unsigned char const*>(text.data()), static_cast<long long>(text.size()));
  return qo::newP<CBufferStream>(static_cast<TBuffer<unsigned char> const*>(bytes.get()));
}

std::vector<String> linesOf(std::string const& text) {
  P<CBufferStream> stream = streamOf(text);
  CLineReader reader(stream.get());
  std::vector<String> lines;
  while (reader.nextLine()) lines.push_back(reader.getLine());
  EXPECT_FALSE(reader.nextLine());  // stays at the end
  return lines;
}
}  // namespace

TEST(CLineReaderTest, LineEndRules) {
  struct Case {
    char const* text;
    std::vector<String> lines;
  } const cases[] = {
      {"", {}},
      {"a", {u"a"}},
      {"a\n", {u"a"}},
      {"a\r", {u"a"}},
      {"a\r\nb", {u"a", u"b"}},      // CR LF: one line end
      {"a\n\rb", {u"a", u"", u"b"}},  // LF CR: two
      {"a\r\rb", {u"a", u"", u"b"}},
      {"a\n\nb", {u"a", u"", u"b"}},
      {"a\r\n\nb", {u"a", u"", u"b"}},
      {"\n", {u""}},
      {"\r\n", {u""}},
      {"\r\n\r\n", {u"", u""}},
      {"\n\n\n", {u"", u"", u""}},
      {"one\ntwo\r\nthree", {u"one", u"two", u"three"}},
      {"\xC3\xA9t\xC3\xA9\nx", {u"\u00E9t\u00E9", u"x"}},
      {"ok\n\xE9t\xE9\r\n\xFF\xFE\n\xC3\xA9", {u"ok", u"\u00E9t\u00E9", u"\u00FF\u00FE", u"\u00E9"}},  // Latin-1
      {"\xC3\xA9\xE9", {u"\u00E9\u00E9"}},  // only the stray byte is Latin-1
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(linesOf(c.text), c.lines);
  }
}

TEST(CLineReaderTest, LinesAndPairsAcrossBlockBoundaries) {
  std::string const longLine(10000, 'x');
  for (std::size_t crAt : {4095u, 4096u, 8191u}) {
    SCOPED_TRACE(crAt);
    std::string text = std::string(crAt, 'y') + "\r\n" + longLine + "\n";
    std::vector<String> lines = linesOf(text);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].length(), crAt);
    EXPECT_EQ(lines[1], String(longLine));
  }
}

TEST(CLineReaderTest, LineEndPositionsAndStreamAccess) {
  P<CBufferStream> stream = streamOf("ab\r\ncd\n\nef");
  CLineReader reader(stream.get());
  EXPECT_EQ(reader.getLine(), String());
  struct Step {
    char16_t const* line;
    long long end;
    int accessed;  // -1: not checked
  } const steps[] = {{u"ab", 2, 1}, {u"cd", 6, 0}, {u"", 7, -1}, {u"ef", 10, 1}};  // the last looked for more
  for (Step const& step : steps) {
    SCOPED_TRACE(step.end);
    ASSERT_TRUE(reader.nextLine());
    EXPECT_EQ(reader.getLine(), String(step.line));
    EXPECT_EQ(reader.getLineEndPosition(), step.end);
    if (step.accessed >= 0) {
      EXPECT_EQ(reader.wasStreamAccessedInLastNextLineCall(), step.accessed == 1);
    }
  }
  EXPECT_FALSE(reader.nextLine());
}

TEST(CLineReaderTest, TryReadNextCharTakesSingleBytes) {
  P<CBufferStream> stream = streamOf("a\r\nb");
  CLineReader reader(stream.get());
  char c = 0;
  ASSERT_TRUE(reader.tryReadNextChar(c));
  EXPECT_EQ(c, 'a');
  ASSERT_TRUE(reader.nextLine());  // the CR ends an empty line
  EXPECT_EQ(reader.getLine(), String());
  ASSERT_TRUE(reader.tryReadNextChar(c));
  EXPECT_EQ(c, '\n');  // taken directly, so not swallowed by a line
  ASSERT_TRUE(reader.nextLine());
  EXPECT_EQ(reader.getLine(), String(u"b"));
  EXPECT_FALSE(reader.tryReadNextChar(c));
}


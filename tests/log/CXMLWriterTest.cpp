#include "qo/log/CXMLWriter.h"

#include <gtest/gtest.h>

#include <string>

#include "qo/core/CInvalidArgError.h"
#include "qo/stream/CBufferStream.h"

using namespace qo;

namespace {

struct Output {
  P<CBufferStream> stream = newP<CBufferStream>();
  std::string bytes() const {
    auto buffer = stream->getBuffer();
    return std::string(reinterpret_cast<char const*>(buffer->getData()), static_cast<std::size_t>(buffer->getSize()));
  }
};

}  // namespace

TEST(CXMLWriterTest, IndentsAndPlacesEndTags) {
  Output out;
  CXMLWriter w(out.stream.get(), true);
  EXPECT_EQ(out.bytes(), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  EXPECT_EQ(CXMLWriter::getDeclaration(), String(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"));
  w.openElement(u"log");
  w.openElement(u"session", CProps().add(u"time", u"t1"));
  w.writeElement(u"entry", u"one", CProps().add(u"time", u"t2").add(u"level", u"info"));
  w.openElement(u"empty");
  w.closeElement();
  w.closeElement();
  w.closeElement();
  EXPECT_EQ(out.bytes(),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "\n<log>"
            "\n  <session time=\"t1\">"
            "\n    <entry level=\"info\" time=\"t2\">one</entry>"
            "\n    <empty></empty>"
            "\n  </session>"
            "\n</log>\n");
  EXPECT_EQ(w.getOpenElementCount(), 0);
  EXPECT_TRUE(w.getClosedLast());
}

TEST(CXMLWriterTest, EscapesTextAndAttributesAsUTF8) {
  Output out;
  CXMLWriter w(out.stream.get(), false);
  w.writeElement(u"e", u"<a & 'b' \"c\">\u00e9\u20ac\U0001F600", CProps().add(u"k", u"x<&>\"'y\u00fc"));
  EXPECT_EQ(out.bytes(),
            "\n<e k=\"x&lt;&amp;&gt;&quot;&apos;y\xC3\xBC\">"
            "&lt;a &amp; &apos;b&apos; &quot;c&quot;&gt;\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80</e>\n");
  // A lone surrogate becomes the replacement character.
  Output lone;
  CXMLWriter(lone.stream.get(), false).writeElement(u"e", String(std::u16string{u'a', static_cast<char16_t>(0xD800)}));
  EXPECT_EQ(lone.bytes(), "\n<e>a\xEF\xBF\xBD</e>\n");
}

TEST(CXMLWriterTest, WritesElementTrees) {
  CXMLElement inner(u"inner", CProps().add(u"b", u"2").add(u"a", u"1"), u"x");
  CXMLElement outer(u"outer", CProps(), u"text");
  outer.add(inner).add(CXMLElement(u"leaf"));
  Output out;
  CXMLWriter w(out.stream.get(), false);
  w.openElement(u"root");
  w.writeElement(outer);
  w.closeElement();
  EXPECT_EQ(out.bytes(),
            "\n<root>"
            "\n  <outer>text"
            "\n    <inner a=\"1\" b=\"2\">x</inner>"
            "\n    <leaf></leaf>"
            "\n  </outer>"
            "\n</root>\n");
}

TEST(CXMLWriterTest, CloseWithNothingOpenThrowsInternalError) {
  Output out;
  CXMLWriter w(out.stream.get(), false);
  w.writeElement(u"only", u"");
  try {
    w.closeElement();
    FAIL() << "no error";
  } catch (CError const& e) {
    EXPECT_EQ(e.getMessage(), String(u"Internal error: CXMLWriter cannot close the element because no element is open."));
    EXPECT_TRUE(e.getErrorCodeDomain().isEmpty());
    EXPECT_EQ(e.getErrorCode(), -1);
  }
}

TEST(CXMLWriterTest, TracksTheOpenElementStack) {
  Output out;
  CXMLWriter w(out.stream.get(), false);
  std::map<String, String> attributes{{u"z", u"1"}, {u"a", u"2"}};
  w.openElement(u"a", &attributes);
  w.openElement(u"b", nullptr);
  EXPECT_EQ(w.getOpenElementCount(), 2);
  EXPECT_EQ(w.getOpenElementName(0), String(u"a"));
  EXPECT_EQ(w.getOpenElementName(1), String(u"b"));
  EXPECT_EQ(w.getOpenElementStack().back(), String(u"b"));
  EXPECT_FALSE(w.getClosedLast());
  EXPECT_EQ(w.getEndTagsOfOpenElements(), String(u"</b>\n</a>\n"));
  EXPECT_THROW(w.getOpenElementName(2), CInvalidArgError);
  EXPECT_THROW(w.getOpenElementName(-1), CInvalidArgError);
  w.closeElement();
  EXPECT_EQ(w.getEndTagsOfOpenElements(), String(u"\n</a>\n"));
  EXPECT_EQ(out.bytes(), "\n<a a=\"2\" z=\"1\">\n  <b></b>");
}

TEST(CXMLWriterTest, RawOutputIsNotEscapedNorTracked) {
  Output out;
  CXMLWriter w(out.stream.get(), false);
  w.openElement(u"r");
  w.writeRawElementBegin(u"raw", CProps().add(u"k", u"<"));
  w.writeRawString(u"<b>&amp;</b>");
  w.writeRawElementEnd(u"raw");
  EXPECT_EQ(w.getOpenElementCount(), 1);
  w.newLine(3);
  w.writeText(u"&");
  w.closeElement();
  EXPECT_EQ(out.bytes(), "\n<r>\n  <raw k=\"&lt;\"><b>&amp;</b></raw>\n      &amp;\n</r>\n");
}

TEST(CXMLWriterTest, IndentStrings) {
  char16_t const* const expected[] = {u"", u"", u"  ", u"    ", u"      "};  // depths -1 to 3
  for (int depth = -1; depth <= 3; ++depth)
    EXPECT_EQ(CXMLWriter::getIndentString(depth), String(expected[depth + 1])) << depth;
}

TEST(CXMLWriterTest, ContinuesAGivenStackAndAppendsAfterSeek) {
  Output out;
  out.stream->write("abc", 3);
  out.stream->seek(1);
  CXMLWriter w(out.stream.get(), TList<String>{u"log", u"session"}, true);
  w.seekToEnd();
  w.writeElement(u"entry", u"e");
  w.closeElement();
  w.closeElement();
  EXPECT_EQ(out.bytes(), "abc\n    <entry>e</entry>\n  </session>\n</log>\n");
}

#include "qo/log/xmlEscape.h"

#include <gtest/gtest.h>

using namespace qo;

TEST(xmlEscapeTest, ReplacesTheFiveCharactersOnly) {
  struct Case {
    char16_t const* in;
    char16_t const* out;
  } const cases[] = {
      {u"", u""}, {u"plain text 123", u"plain text 123"}, {u"&", u"&amp;"}, {u"<", u"&lt;"}, {u">", u"&gt;"},
      {u"\"", u"&quot;"}, {u"'", u"&apos;"},
      {u"&lt;", u"&amp;lt;"},  // existing entities are text too
      {u"a<b>&\"'c", u"a&lt;b&gt;&amp;&quot;&apos;c"},
      {u"\u00e9\u4e2d\r\n\t", u"\u00e9\u4e2d\r\n\t"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.in).toUTF8());
    EXPECT_EQ(xmlEscape(c.in), String(c.out));
  }
}

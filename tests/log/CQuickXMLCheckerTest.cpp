#include "qo/log/CQuickXMLChecker.h"

#include <gtest/gtest.h>

using namespace qo;

TEST(CQuickXMLCheckerTest, AcceptsWellFormedDocuments) {
  char16_t const* const documents[] = {
      u"<a/>", u"<a></a>", u"\uFEFF<a />\n",
      u"<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n  <snip />\n  <session time=\"2026-01-01T00:00:00\">"
      u"\n    <entry level=\"info\" time=\"x\">a &amp; b &lt;&gt; &quot;&apos; &#233; &#x1F600;</entry>"
      u"\n  </session>\n</log>\n",
      u"<!-- head --><?pi data?><!DOCTYPE a><a x='1' y = \"2\"><![CDATA[<&>]]><!-- <x> --><b/>text></a><!-- tail -->",
      u"<a:b c-d.e_f=\"\u00e9\"><\u00e9/></a:b>",
  };
  for (char16_t const* doc : documents) {
    SCOPED_TRACE(String(doc).toUTF8());
    EXPECT_TRUE(CQuickXMLChecker(doc).doCheck());
  }
}

TEST(CQuickXMLCheckerTest, RejectsUnbalancedAndMalformedMarkup) {
  char16_t const* const documents[] = {
      u"",           u"   \n",       u"text only",        u"<a>",          u"<a><b></a></b>",
      u"<a></b>",    u"</a>",        u"<a></a><b></b>",   u"<a/>trailing", u"lead<a/>",
      u"<a></a>\n</a>", u"<a",        u"<a b></a>",        u"<a b=1></a>",  u"<a b=\"1></a>",
      u"<a b=\"<\"></a>", u"<a b=\"1\"c=\"2\"></a>", u"<1a></1a>", u"< a></a>", u"<a>x < y</a>",
      u"<a>&nbsp;</a>", u"<a>& </a>", u"<a>&#;</a>",       u"<a><!-- open</a>", u"<a><![CDATA[x</a>",
      u"<?xml version=\"1.0\"",
      u"<log>\n  <session>\n    <entry level=\"info\">half</log>",
  };
  for (char16_t const* doc : documents) {
    SCOPED_TRACE(String(doc).toUTF8());
    EXPECT_FALSE(CQuickXMLChecker(doc).doCheck());
  }
}

TEST(CQuickXMLCheckerTest, ScanningSteps) {
  CQuickXMLChecker c(u"  <ab c>d");
  EXPECT_EQ(c.getChar(0), u' ');
  EXPECT_EQ(c.getChar(-1), 0);
  EXPECT_EQ(c.getChar(9), 0);
  c.skipWhiteSpace();
  EXPECT_EQ(c.getPosition(), 2);
  EXPECT_TRUE(c.goToNext(u'>'));
  EXPECT_EQ(c.getPosition(), 7);
  EXPECT_FALSE(c.goToNext(u'<'));
  EXPECT_EQ(c.getPosition(), 9);
  CQuickXMLChecker d(u"x-->y-->");
  EXPECT_TRUE(d.goToNext(String(u"-->")));
  EXPECT_EQ(d.getPosition(), 1);
  EXPECT_TRUE(CQuickXMLChecker::isValidNameChar(u'a'));
  EXPECT_TRUE(CQuickXMLChecker::isValidNameChar(u'\u00e9'));
  EXPECT_FALSE(CQuickXMLChecker::isValidNameChar(u'>'));
  EXPECT_FALSE(CQuickXMLChecker::isValidNameChar(u' '));
  EXPECT_FALSE(CQuickXMLChecker::isValidNameChar(u'='));
}

#include "qo/log/CAppendableXMLWriter.h"

#include <gtest/gtest.h>

#include <string>

#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CIOError.h"
#include "qo/log/CQuickXMLChecker.h"
#include "XMLLogTestSupport.h"

using namespace qo;
using namespace qo::xmltest;

namespace {

std::string full(TempFolder const& dir, std::string const& name) {
  return CAppendableXMLWriter::readFullData(dir.path(name)).toUTF8();
}

}  // namespace

TEST(CAppendableXMLWriterTest, SuffixFilePath) {
  struct Case {
    char16_t const* path;
    char16_t const* expected;
  } const cases[] = {
      {u"log.xml", u"log-suffix.xml"},
      {u"/var/log/app.log.xml", u"/var/log/app.log-suffix.xml"},
      {u"C:\\a.b\\log", u"C:\\a.b\\log-suffix"},
      {u"/x.y/log", u"/x.y/log-suffix"},
      {u"/x/.hidden", u"/x/.hidden-suffix"},
      {u"log", u"log-suffix"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.path).toUTF8());
    EXPECT_EQ(CAppendableXMLWriter::getSuffixFilePath(c.path), String(c.expected));
  }
}

TEST(CAppendableXMLWriterTest, EveryFlushLeavesACompleteDocument) {
  TempFolder dir;
  CAppendableXMLWriter w(dir.path("doc.xml"), false);
  EXPECT_EQ(readBytes(dir.file("doc.xml")), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "");
  w.openElement(u"log");
  w.openElement(u"session", CProps().add(u"time", u"1"));
  // Not flushed yet: the files still hold the last complete state.
  EXPECT_EQ(readBytes(dir.file("doc.xml")), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  w.flush();
  EXPECT_EQ(readBytes(dir.file("doc.xml")),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n  <session time=\"1\">");
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "</session>\n</log>\n");
  w.writeElement(u"entry", u"a");
  w.flush();
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "\n  </session>\n</log>\n");
  std::string const expected =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n  <session time=\"1\">\n    <entry>a</entry>"
      "\n  </session>\n</log>\n";
  EXPECT_EQ(full(dir, "doc.xml"), expected);
  EXPECT_EQ(w.getFullData().toUTF8(), expected);
  EXPECT_EQ(w.getMainDataSize(), static_cast<long long>(readBytes(dir.file("doc.xml")).size()));
  writeBytes(dir.file("combined.xml"), expected);
  if (haveXmllint()) EXPECT_EQ(xmllintErrors(dir.file("combined.xml")), "");
}

TEST(CAppendableXMLWriterTest, ReopenInAppendModeContinues) {
  TempFolder dir;
  {
    CAppendableXMLWriter w(dir.path("doc.xml"), false);
    w.openElement(u"log");
    w.openElement(u"session");
    w.writeElement(u"entry", u"1");
    w.flush();
    w.writeElement(u"entry", u"lost");  // never flushed: a dying process drops it
  }
  CAppendableXMLWriter w(dir.path("doc.xml"), true);
  ASSERT_EQ(w.getOpenElementCount(), 2);
  EXPECT_EQ(w.getOpenElementName(0), String(u"log"));
  EXPECT_EQ(w.getOpenElementName(1), String(u"session"));
  w.writeElement(u"entry", u"2");
  w.closeElement();
  w.flush();
  EXPECT_EQ(full(dir, "doc.xml"),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n  <session>\n    <entry>1</entry>"
            "\n    <entry>2</entry>\n  </session>\n</log>\n");
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "\n</log>\n");
  fs::path const combined = dir.file("combined.xml");
  writeBytes(combined, full(dir, "doc.xml"));
  if (haveXmllint()) EXPECT_EQ(xmllintErrors(combined), "");
}

TEST(CAppendableXMLWriterTest, AppendToAMissingFileStartsANewDocument) {
  TempFolder dir;
  CAppendableXMLWriter w(dir.path("new.xml"), true);
  EXPECT_EQ(w.getOpenElementCount(), 0);
  EXPECT_EQ(readBytes(dir.file("new.xml")), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
}

TEST(CAppendableXMLWriterTest, NotAppendingTruncates) {
  TempFolder dir;
  writeBytes(dir.file("doc.xml"), "old content");
  writeBytes(dir.file("doc-suffix.xml"), "</old>");
  CAppendableXMLWriter w(dir.path("doc.xml"), false);
  EXPECT_EQ(w.getOpenElementCount(), 0);
  EXPECT_EQ(full(dir, "doc.xml"), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
}

TEST(CAppendableXMLWriterTest, ReadSuffix) {
  struct Case {
    char16_t const* text;
    bool ok;
    char16_t const* stack;  // names joined with '/', root first
    bool closedLast;
  } const cases[] = {
      {u"", true, u"", true},
      {u" \r\n\t", true, u"", true},
      {u"\n</log>\n", true, u"log", true},
      {u"\n  </session>\n</log>\n", true, u"log/session", true},
      {u"</entry>\n  </session>\n</log>\n", true, u"log/session/entry", false},
      {u"</a></b>", true, u"b/a", false},
      {u"</log", false, u"", true},
      {u"<log>", false, u"", true},
      {u"</>", false, u"", true},
      {u"</a b>", false, u"", true},
      {u"x</log>", false, u"", true},
      {u"</log>y", false, u"", true},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text).toUTF8());
    TList<String> stack{u"untouched"};
    bool closedLast = !c.closedLast;
    ASSERT_EQ(CAppendableXMLWriter::readSuffix(c.text, stack, closedLast), c.ok);
    if (!c.ok) {
      EXPECT_EQ(stack.size(), 1u);
      continue;
    }
    String joined;
    for (String const& name : stack) joined += (joined.isEmpty() ? String() : String(u"/")) + name;
    EXPECT_EQ(joined, String(c.stack));
    EXPECT_EQ(closedLast, c.closedLast);
  }
}

TEST(CAppendableXMLWriterTest, ForeignSuffixIsRefused) {
  TempFolder dir;
  writeBytes(dir.file("doc.xml"), "<?xml version=\"1.0\"?>\n<log>");
  writeBytes(dir.file("doc-suffix.xml"), "not xml");
  try {
    CAppendableXMLWriter w(dir.path("doc.xml"), true);
    FAIL() << "opened";
  } catch (CFileCorruptedError const& e) {
    EXPECT_TRUE(e.getMessage().Contains(dir.path("doc-suffix.xml")));
  }
}

TEST(CAppendableXMLWriterTest, ReplaceMainDataKeepsTheOpenElements) {
  TempFolder dir;
  CAppendableXMLWriter w(dir.path("doc.xml"), false);
  w.openElement(u"log");
  w.writeElement(u"entry", u"old");
  w.flush();
  w.writeElement(u"entry", u"unflushed");
  w.replaceMainData(u"<?xml version=\"1.0\"?>\n<log>\n  <snip />\u00e9");
  EXPECT_EQ(w.getMainData(), String(u"<?xml version=\"1.0\"?>\n<log>\n  <snip />\u00e9"));
  EXPECT_EQ(w.getMainDataSize(), 40);
  w.writeElement(u"entry", u"new");
  w.flush();
  EXPECT_EQ(full(dir, "doc.xml"),
            "<?xml version=\"1.0\"?>\n<log>\n  <snip />\xC3\xA9\n  <entry>new</entry>\n</log>\n");
}

TEST(CAppendableXMLWriterTest, ReadFullDataOfAMissingFileThrows) {
  TempFolder dir;
  EXPECT_THROW(CAppendableXMLWriter::readFullData(dir.path("missing.xml")), CIOError);
}

TEST(CAppendableXMLWriterTest, RestoresTheSuffixFileWhenItVanishes) {
  TempFolder dir;
  CAppendableXMLWriter w(dir.path("doc.xml"), false);
  w.openElement(u"log");
  w.flush();
  fs::remove(dir.file("doc-suffix.xml"));
  w.writeElement(u"entry", u"x");
  w.flush();
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "\n</log>\n");
}

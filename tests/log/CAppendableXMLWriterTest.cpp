#include "qo/log/CAppendableXMLWriter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CIOError.h"
#include "qo/log/CQuickXMLChecker.h"
#include "XMLLogTestSupport.h"

using namespace qo;
using namespace qo::xmltest;

namespace {

std::string full(TempFolder const& dir, std::string const& name = "doc.xml") {
  return CAppendableXMLWriter::readFullData(dir.path(name)).toUTF8();
}

// xmllint, where present, accepts main file and suffix together.
void expectLintClean(TempFolder const& dir) {
  if (!haveXmllint()) return;
  writeBytes(dir.file("combined.xml"), full(dir));
  EXPECT_EQ(xmllintErrors(dir.file("combined.xml")), "");
}

}  // namespace

TEST(CAppendableXMLWriterTest, SuffixFilePath) {
  struct Case {
    char16_t const* path;
    char16_t const* expected;
  } const cases[] = {
      {u"log.xml", u"log-suffix.xml"}, {u"/var/log/app.log.xml", u"/var/log/app.log-suffix.xml"},
      {u"C:\\a.b\\log", u"C:\\a.b\\log-suffix"}, {u"/x.y/log", u"/x.y/log-suffix"},
      {u"/x/.hidden", u"/x/.hidden-suffix"}, {u"log", u"log-suffix"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.path).toUTF8());
    EXPECT_EQ(CAppendableXMLWriter::getSuffixFilePath(c.path), String(c.expected));
  }
}

TEST(CAppendableXMLWriterTest, EveryFlushLeavesACompleteDocument) {
  TempFolder dir;
  CAppendableXMLWriter w(dir.path("doc.xml"), false);
  w.openElement(u"log");
  w.openElement(u"session", CProps().add(u"time", u"1"));
  // Not flushed yet: a new document is not on disk at all.
  EXPECT_FALSE(fs::exists(dir.file("doc.xml")));
  EXPECT_FALSE(fs::exists(dir.file("doc-suffix.xml")));
  w.flush();
  EXPECT_FALSE(fs::exists(dir.file("doc.xml.tmp")));
  EXPECT_EQ(readBytes(dir.file("doc.xml")),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n  <session time=\"1\">");
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "</session>\n</log>\n");
  w.writeElement(u"entry", u"a");
  w.flush();
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "\n  </session>\n</log>\n");
  std::string const expected =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n  <session time=\"1\">\n    <entry>a</entry>"
      "\n  </session>\n</log>\n";
  EXPECT_EQ(full(dir), expected);
  EXPECT_EQ(w.getFullData().toUTF8(), expected);
  EXPECT_EQ(w.getMainDataSize(), static_cast<long long>(readBytes(dir.file("doc.xml")).size()));
  expectLintClean(dir);
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
  EXPECT_EQ(full(dir),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>\n  <session>\n    <entry>1</entry>"
            "\n    <entry>2</entry>\n  </session>\n</log>\n");
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "\n</log>\n");
  expectLintClean(dir);
}

TEST(CAppendableXMLWriterTest, MissingFiles) {
  TempFolder dir;
  EXPECT_THROW(CAppendableXMLWriter::readFullData(dir.path("new.xml")), CIOError);
  CAppendableXMLWriter w(dir.path("new.xml"), true);  // appending to nothing starts a new document
  EXPECT_EQ(w.getOpenElementCount(), 0);
  w.flush();
  EXPECT_EQ(readBytes(dir.file("new.xml")), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n");
  // A suffix file that vanishes is written again when the end tags change.
  w.openElement(u"log");
  w.openElement(u"session");
  w.flush();
  fs::remove(dir.file("new-suffix.xml"));
  w.closeElement();
  w.flush();
  EXPECT_EQ(readBytes(dir.file("new-suffix.xml")), "\n</log>\n");
}

TEST(CAppendableXMLWriterTest, NotAppendingReplacesBothFilesAtTheFirstFlush) {
  TempFolder dir;
  writeBytes(dir.file("doc.xml"), "old content");
  writeBytes(dir.file("doc-suffix.xml"), "</old>");
  CAppendableXMLWriter w(dir.path("doc.xml"), false);
  EXPECT_EQ(w.getOpenElementCount(), 0);
  EXPECT_EQ(full(dir), "old content</old>");  // untouched until the flush
  w.openElement(u"log");
  w.flush();
  EXPECT_EQ(readBytes(dir.file("doc.xml")), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log>");
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "</log>\n");
}

TEST(CAppendableXMLWriterTest, OutputThatWouldStraddleAPageBoundaryStartsAtTheBoundary) {
  TempFolder dir;
  CAppendableXMLWriter w(dir.path("doc.xml"), false);
  w.openElement(u"log");
  w.flush();
  std::string const head = readBytes(dir.file("doc.xml"));
  // Fill the first page up to 100 bytes before its end, then write 200.
  String const filler(std::u16string(4096 - 100 - head.size() - std::string("\n  <a></a>").size(), u'f'));
  w.writeElement(u"a", filler);
  w.flush();
  ASSERT_EQ(readBytes(dir.file("doc.xml")).size(), 4096u - 100u);
  String const text(std::u16string(200 - std::string("\n  <b></b>").size(), u'b'));
  w.writeElement(u"b", text);
  w.flush();
  std::string const main = readBytes(dir.file("doc.xml"));
  ASSERT_EQ(main.size(), 4096u + 200u);
  EXPECT_EQ(main.substr(4096 - 100, 100), std::string(100, ' '));
  EXPECT_EQ(main.substr(4096, 6), "\n  <b>");
  // Output larger than a page is written hidden; at depth 1 its indent is
  // too short to hold "<?q ", which becomes four blanks before it.
  w.writeElement(u"c", String(std::u16string(5000, u'c')));
  w.flush();
  EXPECT_EQ(readBytes(dir.file("doc.xml")).substr(4096 + 200), "    \n  <c>" + std::string(5000, 'c') + "</c>");
  EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), "\n</log>\n");
  expectLintClean(dir);
}

TEST(CAppendableXMLWriterTest, ReopeningRepairsWhatADyingProcessLeftBetweenTheFiles) {
  std::string const decl = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  struct Case {
    char const* name;
    std::string main;
    char const* suffix;  // null: no suffix file
    std::string repairedMain;
    char const* repairedSuffix;
    int open;
  } const cases[] = {
      // Killed between the main file and the suffix file of a flush.
      {"element opened, suffix old", decl + "\n<log>\n  <session>", "\n</log>\n", decl + "\n<log>\n  <session>",
       "</session>\n</log>\n", 2},
      {"element closed, suffix old", decl + "\n<log>\n  <session>\n  </session>", "</session>\n</log>\n",
       decl + "\n<log>\n  <session>\n  </session>", "\n</log>\n", 1},
      {"no suffix file", decl + "\n<log>\n  <a>x</a>", nullptr, decl + "\n<log>\n  <a>x</a>", "\n</log>\n", 1},
      // Killed in the middle of a write larger than a page.
      {"tag cut off", decl + "\n<log>\n  <a>x</a>\n  <b at=\"1", "\n</log>\n", decl + "\n<log>\n  <a>x</a>",
       "\n</log>\n", 1},
      {"text cut off", decl + "\n<log>\n  <a>x</a>\n  <b>partial te", "\n</log>\n",
       decl + "\n<log>\n  <a>x</a>\n  <b>", "</b>\n</log>\n", 2},
      {"end tag cut off", decl + "\n<log>\n  <a>x</a", "\n</log>\n", decl + "\n<log>\n  <a>", "</a>\n</log>\n", 2},
      // Killed between the steps of a flush: a hidden tail goes, the marks
      // in the suffix go.
      {"hidden entry cut off", decl + "\n<log>\n  <s>\n    <a>x</a>\n<?q <entry>part", "?>\n  </s>\n</log>\n",
       decl + "\n<log>\n  <s>\n    <a>x</a>", "\n  </s>\n</log>\n", 2},
      {"closed, end tag hidden", decl + "\n<log>\n  <s>\n    <a>x</a>\n  </s><?q ", "\n  </s>?>\n</log>\n",
       decl + "\n<log>\n  <s>\n    <a>x</a>\n  </s>", "\n</log>\n", 1},
      {"opened, suffix still marked", decl + "\n<log>\n  <s>", "</s>?>\n</log>\n", decl + "\n<log>\n  <s>",
       "</s>\n</log>\n", 2},
      // White space that filled up to a page boundary is kept.
      {"padding only", decl + "\n<log>\n  <a>x</a>   ", "\n</log>\n", decl + "\n<log>\n  <a>x</a>   ",
       "\n</log>\n", 1},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    TempFolder dir;
    writeBytes(dir.file("doc.xml"), c.main);
    if (c.suffix != nullptr) writeBytes(dir.file("doc-suffix.xml"), c.suffix);
    CAppendableXMLWriter w(dir.path("doc.xml"), true);
    EXPECT_EQ(w.getOpenElementCount(), c.open);
    EXPECT_EQ(readBytes(dir.file("doc.xml")), c.repairedMain);
    EXPECT_EQ(readBytes(dir.file("doc-suffix.xml")), c.repairedSuffix);
    expectLintClean(dir);
  }
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
      {u"</log", false, u"", true},   {u"<log>", false, u"", true},   {u"</>", false, u"", true},
      {u"</a b>", false, u"", true},  {u"x</log>", false, u"", true}, {u"</log>y", false, u"", true},
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
  EXPECT_EQ(full(dir),
            "<?xml version=\"1.0\"?>\n<log>\n  <snip />\xC3\xA9\n  <entry>new</entry>\n</log>\n");
}

namespace {

// Checks the pair at every step of a flush: the instants a kill could pick.
struct StepWatch {
  static inline std::string path;
  static inline std::vector<std::string> bad;
  static inline int steps = 0;
  static void onStep(char const* step) {
    ++steps;
    std::string const doc = CAppendableXMLWriter::readFullData(String::fromUTF8(path)).toUTF8();
    if (!CQuickXMLChecker(String::fromUTF8(doc)).doCheck()) bad.push_back(std::string(step) + ":\n" + doc);
  }
};

// Text of about size bytes with two- and three-byte characters in it.
String mixedText(std::size_t size) {
  std::u16string text;
  for (std::size_t i = 0; text.size() < size; ++i) text += i % 3 == 0 ? u'\u00e9' : i % 3 == 1 ? u'\u4e2d' : u'y';
  return String(text);
}

}  // namespace

TEST(CAppendableXMLWriterTest, EveryStepOfEveryFlushLeavesACompleteDocument) {
  struct Case {
    char const* what;
    void (*change)(CAppendableXMLWriter&);
    int minSteps;  // file changes the flush makes at least
  } const cases[] = {
      {"open the session", [](CAppendableXMLWriter& w) { w.openElement(u"session"); }, 4},
      {"short entry", [](CAppendableXMLWriter& w) { w.writeElement(u"entry", u"short"); }, 1},
      {"entry of 20 KB", [](CAppendableXMLWriter& w) { w.writeElement(u"entry", mixedText(20000)); }, 3},
      {"complex entry",
       [](CAppendableXMLWriter& w) {
         w.openElement(u"centry");
         w.writeElement(u"summary", mixedText(3000));
         w.writeElement(u"error", mixedText(3000));
         w.closeElement();
       },
       3},
      {"close the session", [](CAppendableXMLWriter& w) { w.closeElement(); }, 4},
      {"session header of 6 KB",
       [](CAppendableXMLWriter& w) {
         w.openElement(u"session");
         w.writeElement(u"sessionHeader", mixedText(6000));
       },
       4},
      {"cut", [](CAppendableXMLWriter& w) { w.replaceMainData(w.getMainData() + u"\n    <entry>cut</entry>"); }, 1},
  };
  TempFolder dir;
  StepWatch::path = dir.path("doc.xml").toUTF8();
  {
    CAppendableXMLWriter w(dir.path("doc.xml"), false);
    w.openElement(u"log");
    w.flush();
  }
  detail::setXMLWriteStepHook(&StepWatch::onStep);
  for (Case const& c : cases) {
    SCOPED_TRACE(c.what);
    StepWatch::steps = 0;
    StepWatch::bad.clear();
    CAppendableXMLWriter w(dir.path("doc.xml"), true);
    c.change(w);
    w.flush();
    EXPECT_GE(StepWatch::steps, c.minSteps);
    EXPECT_EQ(StepWatch::bad, std::vector<std::string>());
  }
  // A new document over the old one, which has a session open.
  StepWatch::bad.clear();
  CAppendableXMLWriter fresh(dir.path("doc.xml"), false);
  fresh.openElement(u"log");
  fresh.flush();
  detail::setXMLWriteStepHook(nullptr);
  EXPECT_EQ(StepWatch::bad, std::vector<std::string>());
  EXPECT_EQ(full(dir), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n\n<log></log>\n");
  expectLintClean(dir);
}

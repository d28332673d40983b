#include "qo/log/CXMLLog.h"

#include <gtest/gtest.h>

#include <ctime>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "qo/core/CFileCorruptedError.h"
#include "qo/core/CIOError.h"
#include "qo/core/CInvalidArgError.h"
#include "qo/core/CLockFileError.h"
#include "qo/core/CTime.h"
#include "qo/log/CQuickXMLChecker.h"
#include "XMLLogTestSupport.h"

using namespace qo;
using namespace qo::xmltest;

namespace {

// A header that does not depend on the machine, so layouts compare exactly.
class FixedHeader : public CBase, public virtual CXMLLog::ISessionHeaderFactory {
public:
  PC<CXMLElement> createLogSessionHeader() override {
    P<CXMLElement> header(new CXMLElement(u"sessionHeader"));
    header->add(CXMLElement(u"appInfo", CProps().add(u"id", u"test").add(u"version", u"1").add(u"edition", u"e")));
    return header;
  }
};

std::string const kDecl = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
std::string const kSessionStart =
    "\n  <session time=\"T\">"
    "\n    <sessionHeader>"
    "\n      <appInfo edition=\"e\" id=\"test\" version=\"1\"></appInfo>"
    "\n    </sessionHeader>";

P<CXMLLog> openLog(TempFolder const& dir, bool deleteOnClose = false, long long maxSize = -1,
                   bool checkOnOpen = true) {
  P<FixedHeader> header(new FixedHeader);
  return newP<CXMLLog>(dir.path("log.xml"), header.get(), deleteOnClose, maxSize, true, checkOnOpen);
}

std::string mainFile(TempFolder const& dir) { return maskTimes(readBytes(dir.file("log.xml"))); }
// The main file after the session header.
std::string entriesOf(TempFolder const& dir) {
  std::string const main = mainFile(dir);
  return main.substr(main.find("</sessionHeader>") + 16);
}
std::string suffixFile(TempFolder const& dir) { return readBytes(dir.file("log-suffix.xml")); }
std::string fullDoc(TempFolder const& dir) { return maskTimes(CXMLLog::readLogRaw(dir.path("log.xml")).toUTF8()); }

// The full document passes the library's check and, where present, xmllint.
void expectWellFormed(TempFolder const& dir) {
  String const doc = CXMLLog::readLogRaw(dir.path("log.xml"));
  EXPECT_TRUE(CQuickXMLChecker(doc).doCheck()) << doc.toUTF8();
  if (haveXmllint()) {
    writeBytes(dir.file("lint.xml"), doc.toUTF8());
    EXPECT_EQ(xmllintErrors(dir.file("lint.xml")), "");
  }
}

}  // namespace

TEST(CXMLLogTest, FreshFileLayout) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir);
  EXPECT_TRUE(fs::exists(dir.file("log.xml.lock")));
  EXPECT_EQ(mainFile(dir), kDecl + "\n<log>" + kSessionStart);
  EXPECT_EQ(suffixFile(dir), "\n  </session>\n</log>\n");
  log->logInfo(u"hello <world>");
  EXPECT_EQ(mainFile(dir), kDecl + "\n<log>" + kSessionStart + "\n    <entry level=\"info\" time=\"T\">hello &lt;world&gt;</entry>");
  EXPECT_EQ(suffixFile(dir), "\n  </session>\n</log>\n");
  EXPECT_EQ(maskTimes(log->getXMLData().toUTF8()), fullDoc(dir));
  expectWellFormed(dir);
}

TEST(CXMLLogTest, EntryLevelsAndTexts) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir);
  log->logError(u"e1");
  log->logError("e2 \xC3\xA9");
  log->logWarning(u"w1");
  log->logWarning("w2");
  log->logInfo(u"i1");
  log->log(LogLevelDebug, nullptr, u"d1");
  log->writeEntry(LogLevelFatalError, u"f1");
  log->writeEntry(static_cast<LogLevel>(9), u"n1");
  EXPECT_EQ(entriesOf(dir),
            "\n    <entry level=\"ERROR\" time=\"T\">e1</entry>"
            "\n    <entry level=\"ERROR\" time=\"T\">e2 \xC3\xA9</entry>"
            "\n    <entry level=\"WARNING\" time=\"T\">w1</entry>"
            "\n    <entry level=\"WARNING\" time=\"T\">w2</entry>"
            "\n    <entry level=\"info\" time=\"T\">i1</entry>"
            "\n    <entry level=\"debug\" time=\"T\">d1</entry>"
            "\n    <entry level=\"FATAL ERROR\" time=\"T\">f1</entry>"
            "\n    <entry level=\"9\" time=\"T\">n1</entry>");
  EXPECT_EQ(logLevelToString(static_cast<LogLevel>(5)), String(u"5"));
  EXPECT_EQ(logLevelToString(static_cast<LogLevel>(-1)), String(u"-1"));
}

TEST(CXMLLogTest, EntryTimeIsLocalTimeOfTheGivenSeconds) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir);
  long long const seconds = 1700000000;  // 2023-11-14T22:13:20Z
  log->writeEntry(LogLevelInfo, u"t", &seconds);
  std::time_t const t = static_cast<std::time_t>(seconds);
  char expected[32];
  std::strftime(expected, sizeof expected, "%Y-%m-%dT%H:%M:%S", std::localtime(&t));
  EXPECT_EQ(CXMLLog::formatTime(seconds), String(expected));
  EXPECT_NE(readBytes(dir.file("log.xml")).find("<entry level=\"info\" time=\"" + std::string(expected) + "\">t</entry>"),
            std::string::npos);
}

TEST(CXMLLogTest, ComplexEntriesRenderErrors) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir);
  CError cause(u"inner", u"POSIX", 5);
  CError error(u"outer", u"IO", 3, CProps().add(u"uri", u"file:///x").add(u"action", u"write"), &cause);
  log->logError(error, u"Summary & more", u"ctx");
  log->logWarning(std::runtime_error("plain"), u"", u"");
  log->logInfo(CXMLElement(u"custom", CProps().add(u"k", u"v"), u"body"), u"", u"only context");
  CXMLElement element(u"x");
  log->log(LogLevelDebug, &element, u"as summary");
  EXPECT_EQ(entriesOf(dir),
            "\n    <centry level=\"ERROR\" time=\"T\">"
            "\n      <summary>Summary &amp; more</summary>"
            "\n      <context>ctx</context>"
            "\n      <error class=\"qo::CError\" code=\"3\" domain=\"IO\">"
            "\n        <cause>"
            "\n          <error class=\"qo::CError\" code=\"5\" domain=\"POSIX\">"
            "\n            <message>inner</message>"
            "\n            <properties></properties>"
            "\n          </error>"
            "\n        </cause>"
            "\n        <message>outer</message>"
            "\n        <properties action=\"write\" uri=\"file:///x\"></properties>"
            "\n      </error>"
            "\n    </centry>"
            "\n    <centry level=\"WARNING\" time=\"T\">"
            "\n      <error class=\"std::runtime_error\">"
            "\n        <message>plain</message>"
            "\n        <properties></properties>"
            "\n      </error>"
            "\n    </centry>"
            "\n    <centry level=\"info\" time=\"T\">"
            "\n      <context>only context</context>"
            "\n      <custom k=\"v\">body</custom>"
            "\n    </centry>"
            "\n    <centry level=\"debug\" time=\"T\">"
            "\n      <summary>as summary</summary>"
            "\n      <x></x>"
            "\n    </centry>");
  expectWellFormed(dir);
}

TEST(CXMLLogTest, CloseEndsTheSessionAndDropsLaterEntries) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir);
  log->logInfo(u"a");
  log->close();
  log->logInfo(u"dropped");
  log->close();
  EXPECT_FALSE(log->isWritable());
  // The root stays open for the life of the file: its end tag only ever
  // lives in the suffix file.
  EXPECT_EQ(mainFile(dir), kDecl + "\n<log>" + kSessionStart +
                               "\n    <entry level=\"info\" time=\"T\">a</entry>\n  </session>");
  EXPECT_EQ(suffixFile(dir), "\n</log>\n");
  EXPECT_TRUE(fs::exists(dir.file("log.xml")));
  // The lock went with the close.
  P<CXMLLog> again = openLog(dir);
  again->close();
  std::string const doc = fullDoc(dir);
  EXPECT_EQ(countOf(doc, "<session "), 2);
  EXPECT_EQ(countOf(doc, "sessionUnfinished"), 0);
  expectWellFormed(dir);
}

TEST(CXMLLogTest, ReopenAfterDeathMarksSessionUnfinished) {
  TempFolder dir;
  {
    P<CXMLLog> log = openLog(dir);
    log->logInfo(u"before death");
    log->abortLeaveSessionOpen();
    log->logInfo(u"dropped");
  }
  P<CXMLLog> log = openLog(dir);
  log->logInfo(u"after");
  EXPECT_EQ(fullDoc(dir), kDecl + "\n<log>" + kSessionStart +
                              "\n    <entry level=\"info\" time=\"T\">before death</entry>"
                              "\n    <sessionUnfinished></sessionUnfinished>"
                              "\n  </session>" +
                              kSessionStart +
                              "\n    <entry level=\"info\" time=\"T\">after</entry>"
                              "\n  </session>\n</log>\n");
  expectWellFormed(dir);
}

TEST(CXMLLogTest, ReopenClosesAnEntryLeftOpen) {
  TempFolder dir;
  writeBytes(dir.file("log.xml"), kDecl +
                                      "\n<log>\n  <session time=\"2020-01-01T00:00:00\">"
                                      "\n    <centry level=\"ERROR\" time=\"2020-01-01T00:00:00\">"
                                      "\n      <summary>crash</summary>");
  writeBytes(dir.file("log-suffix.xml"), "\n    </centry>\n  </session>\n</log>\n");
  P<CXMLLog> log = openLog(dir);
  EXPECT_EQ(fullDoc(dir), kDecl +
                              "\n<log>\n  <session time=\"T\">"
                              "\n    <centry level=\"ERROR\" time=\"T\">"
                              "\n      <summary>crash</summary>"
                              "\n    </centry>"
                              "\n    <sessionUnfinished></sessionUnfinished>"
                              "\n  </session>" +
                              kSessionStart + "\n  </session>\n</log>\n");
  expectWellFormed(dir);
}

TEST(CXMLLogTest, DamagedOrForeignFilesAreReplaced) {
  struct Case {
    char const* name;
    std::string main;
    char const* suffix;  // null: no suffix file
  } const cases[] = {
      {"foreign root", kDecl + "\n<root>\n  <x>", "\n  </x>\n</root>\n"},
      {"not xml", "garbage", nullptr},
      {"complete foreign document", kDecl + "<other></other>\n", nullptr},
      {"root only, main file broken", kDecl + "\n<log>\n  </session>", "\n</log>\n"},
      {"foreign suffix", kDecl + "\n<log>", "not end tags"},
      {"empty main file", "", "\n</log>\n"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    TempFolder dir;
    writeBytes(dir.file("log.xml"), c.main);
    if (c.suffix != nullptr) writeBytes(dir.file("log-suffix.xml"), c.suffix);
    P<CXMLLog> log = openLog(dir);
    EXPECT_EQ(fullDoc(dir), kDecl + "\n<log>" + kSessionStart + "\n  </session>\n</log>\n");
  }
}

TEST(CXMLLogTest, WithoutCheckOnOpenAnOpenSessionIsTrusted) {
  TempFolder dir;
  // A file whose content the light check would refuse: with checking off
  // and a session open, nothing reads it and it is continued as it is.
  std::string const torn = kDecl + "\n<log>\n  <session>\n    <entry level=in>x</entry>";
  writeBytes(dir.file("log.xml"), torn);
  writeBytes(dir.file("log-suffix.xml"), "\n  </session>\n</log>\n");
  P<CXMLLog> log = openLog(dir, false, -1, false);
  EXPECT_EQ(readBytes(dir.file("log.xml")).substr(0, torn.size()), torn);
}

TEST(CXMLLogTest, MaxSizeLimits) {
  struct Case {
    long long maxSize;
    bool accepted;
  } const cases[] = {{10239, false}, {0, false}, {-2, false}, {10240, true}, {-1, true}, {1LL << 40, true}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.maxSize);
    TempFolder dir;
    if (c.accepted) {
      EXPECT_EQ(openLog(dir, false, c.maxSize)->getMaxSize(), c.maxSize);
      continue;
    }
    try {
      openLog(dir, false, c.maxSize);
      FAIL() << "accepted";
    } catch (CInvalidArgError const& e) {
      EXPECT_EQ(e.getMessage(), String(u"Invalid argument passed to 'CXMLLog::CXMLLog': maxSize must be >=10KB."));
      EXPECT_EQ(e.getParams().getSize(), 0);
    }
    EXPECT_FALSE(fs::exists(dir.file("log.xml")));
    // The refused log let go of its lock.
    EXPECT_NO_THROW(openLog(dir));
  }
}

TEST(CXMLLogTest, ShrinkingKeepsHeadSnipAndNewestEntries) {
  TempFolder dir;
  long long const maxSize = 10240;
  P<CXMLLog> log = openLog(dir, false, maxSize);
  int const count = 400;
  for (int i = 0; i < count; ++i) {
    log->logInfo(u"entry number " + toString(i) + u" " + String(40, u'x'));
    ASSERT_LE(static_cast<long long>(readBytes(dir.file("log.xml")).size()), maxSize) << i;
  }
  std::string const doc = fullDoc(dir);
  std::string const head = kDecl + "\n<log>\n  <snip />\n  <session time=\"T\">\n    <entry ";
  EXPECT_EQ(doc.substr(0, head.size()), head);
  EXPECT_EQ(countOf(doc, "<snip />"), 1);
  // The newest entries survive, consecutive and in order.
  std::size_t const first = doc.find("entry number ");
  int firstNumber = std::stoi(doc.substr(first + 13));
  EXPECT_GT(firstNumber, 0);
  for (int i = firstNumber; i < count; ++i)
    EXPECT_EQ(countOf(doc, "entry number " + std::to_string(i) + " "), 1) << i;
  EXPECT_EQ(countOf(doc, "<entry "), count - firstNumber);
  expectWellFormed(dir);
}

TEST(CXMLLogTest, ShrinkingCutsAtSessionsToo) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir, false, 10240);
  for (int session = 0; session < 30; ++session) {
    log->logInfo(String(600, u's'));
    log->beginNewSession();
    ASSERT_LE(static_cast<long long>(readBytes(dir.file("log.xml")).size()), 10240);
  }
  std::string const doc = fullDoc(dir);
  std::string const head = kDecl + "\n<log>\n  <snip />\n  <session ";
  EXPECT_EQ(doc.substr(0, head.size()), head);
  EXPECT_EQ(countOf(doc, "<snip />"), 1);
  EXPECT_GE(countOf(doc, "<session "), 2);
  expectWellFormed(dir);
}

TEST(CXMLLogTest, AnEntryLargerThanTheLimitStartsAFreshFile) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir, false, 10240);
  log->logInfo(u"small");
  log->logInfo(String(30000, u'x'));
  EXPECT_EQ(fullDoc(dir), kDecl + "\n<log>" + kSessionStart + "\n  </session>\n</log>\n");
  log->logInfo(u"next");
  EXPECT_EQ(countOf(fullDoc(dir), "next"), 1);
}

TEST(CXMLLogTest, CutFunctions) {
  String const head = u"<?xml?>\n\n<log>\n";
  String const s1 = u"  <session time=\"1\">\n    <sessionHeader></sessionHeader>\n    <entry a>1</entry>\n  </session>\n";
  String const s2 = u"  <session time=\"2\">\n    <sessionHeader></sessionHeader>\n    <entry a>2</entry>\n    <centry a>3</centry>";
  String const data = head + s1 + s2;
  std::size_t const session2 = data.Find(String(u"\n  <session time=\"2\""));
  std::size_t const entry2 = data.Find(String(u"\n    <entry a>2"));
  std::size_t const centry3 = data.Find(String(u"\n    <centry"));
  EXPECT_EQ(CXMLLog::cutMainDataAtSession(data, session2),
            String(u"<?xml?>\n\n<log>\n  <snip />\n  <session time=\"2\">\n    <sessionHeader></sessionHeader>"
                   u"\n    <entry a>2</entry>\n    <centry a>3</centry>"));
  EXPECT_EQ(CXMLLog::cutMainDataAtEntry(data, entry2),
            String(u"<?xml?>\n\n<log>\n  <snip />\n  <session time=\"2\">\n    <entry a>2</entry>\n    <centry a>3</centry>"));
  EXPECT_EQ(CXMLLog::cutMainDataAtEntry(data, centry3),
            String(u"<?xml?>\n\n<log>\n  <snip />\n  <session time=\"2\">\n    <centry a>3</centry>"));
  // At the end of the "<log>" line nothing is cut, the mark still goes in.
  std::size_t const logLineEnd = head.length() - 1;
  EXPECT_EQ(CXMLLog::cutMainDataAtSession(data, logLineEnd), head + u"  <snip />" + data.Mid(logLineEnd));
  // The first boundary at or after the start position decides.
  EXPECT_EQ(CXMLLog::cutMainData(data, session2 - 5), CXMLLog::cutMainDataAtSession(data, session2));
  EXPECT_EQ(CXMLLog::cutMainData(data, session2 + 1), CXMLLog::cutMainDataAtEntry(data, entry2));
  EXPECT_EQ(CXMLLog::cutMainData(data, head.length()), CXMLLog::cutMainDataAtEntry(data, data.Find(String(u"\n    <entry a>1"))));
  EXPECT_EQ(CXMLLog::cutMainData(data, centry3 + 1), String());
  // No "<log" line before the cut: nothing to keep.
  EXPECT_EQ(CXMLLog::cutMainDataAtSession(u"<x>\n  <session a>", 3), String());
  EXPECT_EQ(CXMLLog::cutMainDataAtSession(data, 5), String());
  EXPECT_EQ(CXMLLog::cutMainDataAtEntry(head + u"    <entry a>", head.length() - 1), String());
}

TEST(CXMLLogTest, DeleteOnCloseRemovesAllThreeFiles) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir, true);
  log->logInfo(u"x");
  char const* const names[] = {"log.xml", "log-suffix.xml", "log.xml.lock"};
  for (char const* name : names) EXPECT_TRUE(fs::exists(dir.file(name))) << name;
  log->close();
  for (char const* name : names) EXPECT_FALSE(fs::exists(dir.file(name))) << name;
}

TEST(CXMLLogTest, ASecondLogOnTheSamePathIsRefused) {
  TempFolder dir;
  P<CXMLLog> first = openLog(dir);
  try {
    openLog(dir);
    FAIL() << "opened twice";
  } catch (CLockFileError const& e) {
    EXPECT_EQ(e.getParams().lookup(CLockFileError::paramPath()), dir.path("log.xml.lock"));
    EXPECT_TRUE(e.isLockConflict());
  }
  first->logInfo(u"still mine");
  EXPECT_EQ(countOf(fullDoc(dir), "<session "), 1);
}

TEST(CXMLLogTest, InjectedWriteErrorIsThrownFromEveryWritePath) {
  TempFolder dir;
  CIOError const fake(CIOError::kWriteFailed, String(), CProps().add(u"fake", u"1"));
  P<FixedHeader> header(new FixedHeader);
  try {
    P<CXMLLog> log = newP<CXMLLog>(dir.path("log.xml"), header.get(), false, -1, true, true, &fake);
    FAIL() << "constructed";
  } catch (CIOError const& e) {
    EXPECT_EQ(e.getParams().lookup(u"fake"), String(u"1"));
  }
  P<CXMLLog> log = openLog(dir);
  std::string const before = readBytes(dir.file("log.xml"));
  log->setFakeWriteError(&fake);
  CXMLElement element(u"e");
  std::runtime_error plain("p");
  std::function<void()> const paths[] = {
      [&] { log->writeEntry(LogLevelInfo, u"x"); }, [&] { log->writeComplexEntry(LogLevelInfo, element, u"s", u"c"); },
      [&] { log->log(LogLevelInfo, nullptr, u"x"); }, [&] { log->logError(u"x"); }, [&] { log->logError("x"); },
      [&] { log->logError(element, u"s", u"c"); }, [&] { log->logError(plain, u"s", u"c"); },
      [&] { log->logWarning(u"x"); }, [&] { log->logWarning("x"); }, [&] { log->logWarning(element, u"s", u"c"); },
      [&] { log->logWarning(plain, u"s", u"c"); }, [&] { log->logInfo(u"x"); },
      [&] { log->logInfo(element, u"s", u"c"); }, [&] { log->logException(LogLevelDebug, plain, u"s", u"c"); },
      [&] { log->logLogFileContents(LogLevelInfo, dir.path("none.xml"), u"s", u"c"); },
      [&] { log->beginNewSession(); }};
  for (std::size_t i = 0; i < std::size(paths); ++i) EXPECT_THROW(paths[i](), CIOError) << "write path " << i;
  EXPECT_EQ(readBytes(dir.file("log.xml")), before);
  log->setFakeWriteError(nullptr);
  log->logInfo(u"works again");
  EXPECT_EQ(countOf(readBytes(dir.file("log.xml")), "works again"), 1);
}

TEST(CXMLLogTest, ALogWithoutPathWritesNothing) {
  CIOError const fake(CIOError::kWriteFailed);
  CXMLLog log(String(), nullptr, true, -1, true, true, &fake);
  EXPECT_FALSE(log.isWritable());
  log.logInfo(u"dropped");
  log.logError(std::runtime_error("x"), u"s", u"c");
  log.beginNewSession();
  EXPECT_EQ(log.getXMLData(), String());
  EXPECT_TRUE(log.getPath().isEmpty());
  log.close();
}

TEST(CXMLLogTest, ManyThreadsLogEveryEntryExactlyOnce) {
  TempFolder dir;
  P<CXMLLog> log = openLog(dir);
  int const threads = 8, perThread = 1000;
  std::vector<std::thread> workers;
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&, t] {
      for (int i = 0; i < perThread; ++i) {
        String const text = u"t" + toString(t) + u"-" + toString(i) + u".";
        i % 10 == 0 ? log->logError(CError(text), u"s", u"c") : log->logInfo(text);
      }
    });
  }
  for (std::thread& worker : workers) worker.join();
  log->close();
  std::string const doc = fullDoc(dir);
  // Every ">t<thread>-<index>.<" text, counted in one pass.
  std::map<std::string, int> seen;
  for (std::size_t pos = doc.find(">t"); pos != std::string::npos; pos = doc.find(">t", pos + 1)) {
    std::size_t const end = doc.find(".<", pos);
    ASSERT_NE(end, std::string::npos);
    ++seen[doc.substr(pos + 1, end - pos - 1)];
  }
  EXPECT_EQ(seen.size(), static_cast<std::size_t>(threads * perThread));
  for (int t = 0; t < threads; ++t)
    for (int i = 0; i < perThread; ++i)
      ASSERT_EQ(seen["t" + std::to_string(t) + "-" + std::to_string(i)], 1) << t << "-" << i;
  EXPECT_EQ(countOf(doc, "<entry ") + countOf(doc, "<centry "), threads * perThread);
  expectWellFormed(dir);
}

TEST(CXMLLogTest, ReadValidLogLimitsSessionsAndBytes) {
  TempFolder dir;
  {
    P<CXMLLog> log = openLog(dir);
    for (int s = 0; s < 4; ++s) {
      for (int i = 0; i < 5; ++i) log->logInfo(u"s" + toString(s) + u"e" + toString(i));
      if (s < 3) log->beginNewSession();
    }
  }
  String out = u"stale";
  ASSERT_TRUE(CXMLLog::readValidLog(out, dir.path("log.xml"), -1, -1));
  EXPECT_EQ(out, CXMLLog::readLogRaw(dir.path("log.xml")));
  ASSERT_TRUE(CXMLLog::readValidLog(out, dir.path("log.xml"), -1, 2));
  std::string text = out.toUTF8();
  EXPECT_EQ(countOf(text, "<session "), 2);
  EXPECT_EQ(countOf(text, ">s1e"), 0);
  EXPECT_EQ(countOf(text, ">s2e0<"), 1);
  EXPECT_EQ(countOf(text, "<snip />"), 1);
  EXPECT_TRUE(CQuickXMLChecker(out).doCheck());
  ASSERT_TRUE(CXMLLog::readValidLog(out, dir.path("log.xml"), 200, -1));
  text = out.toUTF8();
  EXPECT_EQ(countOf(text, ">s3e4<"), 1);
  EXPECT_EQ(countOf(text, ">s3e0<"), 0);
  EXPECT_TRUE(CQuickXMLChecker(out).doCheck());

  EXPECT_FALSE(CXMLLog::readValidLog(out, dir.path("missing.xml"), -1, -1));
  EXPECT_TRUE(out.isEmpty());
  writeBytes(dir.file("bad.xml"), kDecl + "\n<log>\n  <session>");
  out = u"stale";
  EXPECT_FALSE(CXMLLog::readValidLog(out, dir.path("bad.xml"), -1, -1));
  EXPECT_TRUE(out.isEmpty());
  EXPECT_THROW(CXMLLog::readValidLog(out, dir.path("log.xml"), 0, -1), CInvalidArgError);
  EXPECT_THROW(CXMLLog::readValidLog(out, dir.path("log.xml"), -1, 0), CInvalidArgError);
}

TEST(CXMLLogTest, LogsTheContentsOfAnotherLog) {
  TempFolder dir;
  writeBytes(dir.file("other.xml"), "<a>&</a>");
  writeBytes(dir.file("other-suffix.xml"), "</b>");
  P<CXMLLog> log = openLog(dir);
  log->logLogFileContents(LogLevelWarning, dir.path("other.xml"), u"child log", u"");
  log->logLogFileContents(LogLevelWarning, dir.path("gone.xml"), u"missing", u"");
  std::string const doc = fullDoc(dir);
  EXPECT_NE(doc.find("<summary>child log</summary>\n      <logText>&lt;a&gt;&amp;&lt;/a&gt;&lt;/b&gt;</logText>"),
            std::string::npos);
  EXPECT_NE(doc.find("<summary>missing</summary>\n      <error class=\"qo::CIOError\""), std::string::npos);
  expectWellFormed(dir);
}

TEST(CXMLLogTest, DefaultSessionHeaderDescribesAppAndSystem) {
  P<CXMLLog::CDefaultSessionHeaderFactory> factory(
      new CXMLLog::CDefaultSessionHeaderFactory(u"app", u"7.1", u"pro & more"));
  PC<CXMLElement> header = factory->createLogSessionHeader();
  ASSERT_TRUE(header);
  EXPECT_EQ(header->getName(), String(u"sessionHeader"));
  PC<CXMLElement> app = header->findFirstSubElement(u"appInfo");
  ASSERT_TRUE(app);
  EXPECT_EQ(app->getAttributes().toString(), String(u"'edition'='pro & more', 'id'='app', 'version'='7.1'"));
  PC<CXMLElement> sys = header->findFirstSubElement(u"sysInfo");
  ASSERT_TRUE(sys);
  PC<CXMLElement> os = sys->findFirstSubElement(u"osInfo"), mem = sys->findFirstSubElement(u"memInfo"),
                  cpu = sys->findFirstSubElement(u"cpuInfo");
  ASSERT_TRUE(os && mem && cpu);
  for (char16_t const* key : {u"type", u"versionMajor", u"versionMinor", u"versionUpdate", u"is64Bit", u"desc"})
    EXPECT_TRUE(os->getAttributes().contains(key)) << String(key).toUTF8();
  EXPECT_FALSE(os->getAttributes().lookup(u"type").isEmpty());
  String const is64 = os->getAttributes().lookup(u"is64Bit");
  EXPECT_TRUE(is64 == String(u"true") || is64 == String(u"false"));
  EXPECT_GT(mem->getAttributes().lookupLong(u"totalPhysical", 0), 0);
  EXPECT_GE(mem->getAttributes().lookupLong(u"freePhysical", -1), 0);
  EXPECT_GE(cpu->getAttributes().lookupLong(u"coreCount", 0), 1);
}

TEST(CXMLLogTest, XmllintAcceptsEveryKindOfContent) {
  if (!haveXmllint()) GTEST_SKIP() << "xmllint (libxml2-utils) is not available here";
  TempFolder dir;
  {
    P<CXMLLog> log = openLog(dir, false, 10240);
    log->logInfo(u"a < b & \"c\" 'd' \u00e9\u4e2d\U0001F600");
    log->abortLeaveSessionOpen();
  }
  P<CXMLLog::CDefaultSessionHeaderFactory> header(
      new CXMLLog::CDefaultSessionHeaderFactory(u"app<1>", u"1.0", u"\u00e9"));
  P<CXMLLog> log = newP<CXMLLog>(dir.path("log.xml"), header.get(), false, 10240);
  CError cause(u"cause & effect");
  log->logError(CError(u"outer", u"IO", 3, CProps().add(u"uri", u"file:///a?b=\"c\""), &cause), u"s<", u"c>");
  for (int i = 0; i < 120; ++i) log->logWarning(u"filler " + toString(i) + String(60, u'-'));
  log->close();
  std::string const doc = CXMLLog::readLogRaw(dir.path("log.xml")).toUTF8();
  EXPECT_EQ(countOf(doc, "<snip />"), 1);
  writeBytes(dir.file("lint.xml"), doc);
  EXPECT_EQ(xmllintErrors(dir.file("lint.xml")), "");
}

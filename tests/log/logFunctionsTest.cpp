// The free logging functions and the global log. Includes the library's
// public header on purpose: the two-argument logError of ErrorLog.h and the
// log's functions must live side by side without ambiguity.
#include "qo/qo.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "XMLLogTestSupport.h"

using namespace qo;
using namespace qo::xmltest;

namespace {

std::unique_ptr<TempFolder> g_folder;
int g_creations = 0;

P<CXMLLog> createTestLog() {
  ++g_creations;
  return newP<CXMLLog>(g_folder->path("global.xml"));
}

P<CXMLLog> createLoggingTestLog() {
  // Reports made while the global log is being made must not come back
  // into its creation (they go to the debugger output).
  logError(u"reported during creation");
  qo::logError(CError(u"library report during creation"), u"summary");
  return createTestLog();
}

class logFunctionsTest : public ::testing::Test {
protected:
  void SetUp() override {
    CXMLLog::disposeGlobalInstance();
    CXMLLog::setGlobalCreateFunc(nullptr);
    g_folder = std::make_unique<TempFolder>();
    g_creations = 0;
    m_previousHook = getErrorLogHook();
  }
  void TearDown() override {
    CXMLLog::disposeGlobalInstance();
    CXMLLog::setGlobalCreateFunc(nullptr);
    EXPECT_EQ(getErrorLogHook(), m_previousHook);
    g_folder.reset();
  }
  std::string logText() const { return CXMLLog::readLogRaw(g_folder->path("global.xml")).toUTF8(); }

  ErrorLogHook m_previousHook = nullptr;
};

}  // namespace

TEST_F(logFunctionsTest, FreeFunctionsWriteToTheGlobalLog) {
  CXMLLog::setGlobalCreateFunc(&createTestLog);
  EXPECT_TRUE(CXMLLog::haveGlobalCreateFunc());
  EXPECT_FALSE(CXMLLog::haveGlobalLogInstance());
  logInfo(u"info text");
  EXPECT_TRUE(CXMLLog::haveGlobalLogInstance());
  logError(u"error text");
  logError("narrow error");
  logWarning(u"warning text");
  logWarning("narrow warning");
  logError(std::runtime_error("boom"), u"error summary", u"error context");
  logWarning(CError(u"careful"), u"warning summary", u"");
  logInfo(CXMLElement(u"custom", CProps(), u"c"), u"info summary", u"");
  logError(CXMLElement(u"e1"), u"", u"");
  logWarning(CXMLElement(u"w1"), u"", u"");
  logException(LogLevelDebug, std::logic_error("le"), u"exception summary", u"");
  logSysError(2, u"sys summary");
  logLogFileContents(LogLevelInfo, g_folder->path("nothing.xml"), u"contents summary", u"");
  EXPECT_EQ(g_creations, 1);
  std::string const text = logText();
  for (char const* expected :
       {"<entry level=\"info\" time=", ">info text</entry>", "<entry level=\"ERROR\"", ">error text<", ">narrow error<",
        ">warning text<", ">narrow warning<", "<summary>error summary</summary>\n      <context>error context</context>",
        "<message>boom</message>", "<centry level=\"WARNING\"", "<summary>warning summary</summary>",
        "<custom>c</custom>", "<e1></e1>", "<w1></w1>", "<centry level=\"debug\"", "<message>le</message>",
        "<summary>sys summary</summary>", "<summary>contents summary</summary>"}) {
    EXPECT_NE(text.find(expected), std::string::npos) << expected;
  }
  // The system error carries this OS's domain and the code.
  std::string const domain = CSystemError::getPlatformDomain().toUTF8();
  EXPECT_NE(text.find("code=\"2\" domain=\"" + domain + "\""), std::string::npos);
}

TEST_F(logFunctionsTest, CreateFuncCannotChangeOnceTheLogExists) {
  CXMLLog::setGlobalCreateFunc(&createTestLog);
  P<CXMLLog> log = CXMLLog::getGlobal();
  EXPECT_EQ(log.get(), CXMLLog::getGlobal().get());
  try {
    CXMLLog::setGlobalCreateFunc(nullptr);
    FAIL() << "changed";
  } catch (CError const& e) {
    EXPECT_EQ(e.getMessage(), String(u"Cannot change global log creation function. Global log instance already created."));
  }
  EXPECT_TRUE(CXMLLog::haveGlobalCreateFunc());
  log = nil;
  CXMLLog::disposeGlobalInstance();
  EXPECT_FALSE(CXMLLog::haveGlobalLogInstance());
  EXPECT_NO_THROW(CXMLLog::setGlobalCreateFunc(nullptr));
  EXPECT_FALSE(CXMLLog::haveGlobalCreateFunc());
}

TEST_F(logFunctionsTest, LibraryReportsReachTheLogThroughTheHook) {
  CXMLLog::setGlobalCreateFunc(&createTestLog);
  EXPECT_NE(getErrorLogHook(), m_previousHook);
  // The two-argument form is the library's own report (qo/core/ErrorLog.h).
  qo::logError(CError(u"library failure", u"IO", 3), u"CThread::run threw.");
  qo::logError(std::runtime_error("std failure"), u"from a destructor");
  EXPECT_EQ(g_creations, 1);
  std::string const text = logText();
  EXPECT_NE(text.find("<summary>CThread::run threw.</summary>\n      <error class=\"qo::CError\" code=\"3\" domain=\"IO\">"),
            std::string::npos);
  EXPECT_NE(text.find("<summary>from a destructor</summary>"), std::string::npos);
  EXPECT_NE(text.find("std failure"), std::string::npos);
  CXMLLog::disposeGlobalInstance();
  EXPECT_EQ(getErrorLogHook(), m_previousHook);
  // Without the hook the report no longer creates or reaches a log.
  qo::logError(CError(u"after dispose"), u"summary");
  EXPECT_FALSE(CXMLLog::haveGlobalLogInstance());
  EXPECT_EQ(logText().find("after dispose"), std::string::npos);
}

TEST_F(logFunctionsTest, ReportsDuringCreationDoNotDeadlock) {
  CXMLLog::setGlobalCreateFunc(&createLoggingTestLog);
  logInfo(u"first");
  EXPECT_EQ(g_creations, 1);
  std::string const text = logText();
  EXPECT_NE(text.find(">first<"), std::string::npos);
  EXPECT_EQ(text.find("during creation"), std::string::npos);
}

TEST_F(logFunctionsTest, CloserEndsTheGlobalSession) {
  CXMLLog::setGlobalCreateFunc(&createTestLog);
  {
    CXMLLog::CGlobalLogCloser closer;
    logInfo(u"last words");
  }
  EXPECT_FALSE(CXMLLog::haveGlobalLogInstance());
  EXPECT_EQ(readBytes(g_folder->file("global-suffix.xml")), "\n</log>\n");
  std::string const text = logText();
  EXPECT_EQ(text.substr(text.size() - 21), "\n  </session>\n</log>\n");
}

TEST_F(logFunctionsTest, AFailedCreationLeavesALogThatWritesNothing) {
  CXMLLog::setGlobalCreateFunc([]() -> P<CXMLLog> { throw CError(u"cannot create"); });
  logInfo(u"goes to the debugger output");
  P<CXMLLog> log = CXMLLog::getGlobal();
  ASSERT_TRUE(log);
  EXPECT_FALSE(log->isWritable());
  EXPECT_TRUE(log->getPath().isEmpty());
}

// logError: the hook receives every report with its class; without a hook
// the report goes to the debugger output.
#include "qo/core/ErrorLog.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "qo/core/CIOError.h"
#include "qo/core/CStdExceptionError.h"
#include "qo/core/CSystemError.h"

namespace qo {
namespace {

struct Report {
  String summary;
  String desc;
  bool isIOError;
  bool isStdExceptionError;
};
std::vector<Report> g_reports;  // the tests log on one thread only

void recordingHook(CError const& error, String const& summary) {
  g_reports.push_back({summary, error.getDesc(), dynamic_cast<CIOError const*>(&error) != nullptr,
                       dynamic_cast<CStdExceptionError const*>(&error) != nullptr});
}

class ErrorLogTest : public testing::Test {
protected:
  void SetUp() override {
    g_reports.clear();
    m_previous = setErrorLogHook(&recordingHook);
  }
  void TearDown() override { setErrorLogHook(m_previous); }
  ErrorLogHook m_previous = nullptr;
};

TEST_F(ErrorLogTest, HookReceivesErrorsWithTheirClassAndSetReturnsThePrevious) {
  EXPECT_EQ(getErrorLogHook(), &recordingHook);
  logError(CIOError(CIOError::kWriteFailed), u"writing failed");
  std::exception const& asStd = CIOError(CIOError::kReadFailed);
  logError(asStd, u"as std");
  logError(std::runtime_error("plain"), u"std");
  ASSERT_EQ(g_reports.size(), 3u);
  EXPECT_EQ(g_reports[0].summary, String(u"writing failed"));
  EXPECT_EQ(g_reports[0].desc, String(u"Error writing data. [IO 3]"));
  EXPECT_TRUE(g_reports[0].isIOError);
  EXPECT_TRUE(g_reports[1].isIOError);
  EXPECT_TRUE(g_reports[2].isStdExceptionError);
  EXPECT_EQ(g_reports[2].desc, String(u"plain [STDEXC 10]"));
  EXPECT_EQ(setErrorLogHook(nullptr), &recordingHook);
  EXPECT_EQ(setErrorLogHook(&recordingHook), nullptr);
}

TEST_F(ErrorLogTest, WithoutHookWritesErrorLineToTheDebuggerOutput) {
  setErrorLogHook(nullptr);
  if (CSystemError::getPlatformDomain() != String(u"POSIX")) GTEST_SKIP() << "OutputDebugString is not captured";
  testing::internal::CaptureStderr();
  logError(CError(u"boom", u"X", 4), u"Something failed.");
  std::string out = testing::internal::GetCapturedStderr();
  EXPECT_EQ(out, "ERROR: Something failed. boom [X 4]\n");
}

}  // namespace
}  // namespace qo

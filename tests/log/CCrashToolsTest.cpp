#include "qo/log/CCrashTools.h"

#include <gtest/gtest.h>

#include <string>

#include "log/CrashTestSupport.h"

namespace qo {
namespace {

TEST(CCrashToolsTest, MeasuresAndCopiesOnlyWhatFitsWithItsNul) {
  EXPECT_EQ(0, CCrashTools::getStringLength(nullptr));
  EXPECT_EQ(3, CCrashTools::getStringLength("abc"));
  EXPECT_EQ(0, CCrashTools::getFSStringLength(nullptr));
  EXPECT_EQ(0, CCrashTools::getFSStringLength(L""));
  EXPECT_EQ(4, CCrashTools::getFSStringLength(L"a\\b."));
  wchar_t target[4] = {L'x', L'x', L'x', L'x'};
  EXPECT_EQ(3, CCrashTools::fsStringCopy(target, 4, String(u"abc")));
  EXPECT_EQ(std::wstring(L"abc"), std::wstring(target));
  EXPECT_EQ(-1, CCrashTools::fsStringCopy(target, 4, String(u"abcd")));
  EXPECT_EQ(L'\0', target[0]);
  EXPECT_EQ(0, CCrashTools::fsStringCopy(target, 1, String()));
  EXPECT_EQ(-1, CCrashTools::fsStringCopy(target, 0, String()));
  EXPECT_EQ(3, CCrashTools::fsStringCopy(target, 4, L"xyz"));
  EXPECT_EQ(-1, CCrashTools::fsStringCopy(target, 3, L"xyz"));
  EXPECT_EQ(3, CCrashTools::fsStringAppend(target, 4, 0, "abc"));
  EXPECT_EQ(-1, CCrashTools::fsStringAppend(target, 4, 3, "d"));
  EXPECT_EQ(std::wstring(L"abc"), std::wstring(target));
}

TEST(CCrashToolsTest, CopiesSurrogatesAsThePlatformsWideTextHoldsThem) {
  wchar_t target[8];
  String const pair(u"a\U0001F600");
  String const lone(std::u16string(1, char16_t(0xDC00)));
  if (sizeof(wchar_t) == 2) {
    EXPECT_EQ(3, CCrashTools::fsStringCopy(target, 8, pair));
    EXPECT_EQ(0xDE00u, static_cast<unsigned>(target[2]) & 0xFFFF);
    EXPECT_EQ(1, CCrashTools::fsStringCopy(target, 8, lone));
    EXPECT_EQ(0xDC00u, static_cast<unsigned>(target[0]) & 0xFFFF);
  } else {
    EXPECT_EQ(2, CCrashTools::fsStringCopy(target, 8, pair));
    EXPECT_EQ(0x1F600u, static_cast<unsigned>(target[1]));
    EXPECT_EQ(1, CCrashTools::fsStringCopy(target, 8, lone));
    EXPECT_EQ(0xFFFDu, static_cast<unsigned>(target[0]));
  }
}

TEST(CCrashToolsTest, ClearClosesBothFiles) {
  crashtest::TempFolder folder("tools-clear");
  std::filesystem::create_directories(folder.path());
  CCrashTools tools;
  CCrashTools::fsStringCopy(tools.getPathBuffer(), CCrashTools::kPathCapacity, folder.qoPath("a.txt").toString());
  ASSERT_TRUE(tools.getFileAccessA().open(tools.getPathBuffer(), CCrashFileAccess::kCreate));
  CCrashTools::fsStringCopy(tools.getPathBuffer(), CCrashTools::kPathCapacity, folder.qoPath("b.txt").toString());
  ASSERT_TRUE(tools.getFileAccessB().open(tools.getPathBuffer(), CCrashFileAccess::kAppend));
  tools.getFileAccessA().writeStringRaw("kept");
  tools.clear();
  EXPECT_FALSE(tools.getFileAccessA().isOpen());
  EXPECT_FALSE(tools.getFileAccessB().isOpen());
  EXPECT_EQ(L'\0', tools.getPathBuffer()[0]);
  EXPECT_EQ("kept", crashtest::readFile(folder.file("a.txt")));
}

}  // namespace
}  // namespace qo

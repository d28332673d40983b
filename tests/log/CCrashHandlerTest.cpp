#include "qo/log/CCrashHandler.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "log/CrashTestSupport.h"
#include "qo/core/CSystemError.h"
#include "qo/log/CCrashInfo.h"
#include "qo/log/CCrashTools.h"

namespace qo {
namespace {

using crashtest::TempFolder;
using crashtest::WinPath;

std::uint32_t readU32(std::string const& bytes, std::size_t at) {
  std::uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | static_cast<unsigned char>(bytes[at + static_cast<std::size_t>(i)]);
  return v;
}

// The stream types listed in a minidump's directory.
std::set<std::uint32_t> streamTypes(std::string const& dump) {
  std::set<std::uint32_t> types;
  if (dump.size() < 32) return types;
  std::uint32_t const count = readU32(dump, 8);
  std::uint32_t const rva = readU32(dump, 12);
  for (std::uint32_t i = 0; i < count && rva + 12 * (i + 1) <= dump.size(); ++i) {
    types.insert(readU32(dump, rva + 12 * i));
  }
  return types;
}

TEST(CCrashHandlerTest, NamesTheFilesByTheCrashTime) {
  TempFolder folder("handler-names");
  auto handler = newP<CCrashHandler>(folder.qoPath(), String(u"App"), folder.qoPath("log.xml"), true);
  CCrashInfo info;
  info.init(CCrashInfo::kCRTTerminate, 12345);
  CCrashTools tools;
  handler->handleCrash(info, tools);
  EXPECT_EQ((std::vector<std::string>{"crash-0000012345-info.xml", "crash-0000012345-minidump.mdmp", "log-suffix.xml",
                                      "log.xml"}),
            folder.names());
  std::string const xml = crashtest::readFile(folder.file("crash-0000012345-info.xml"));
  EXPECT_EQ(0u, xml.find("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
                         "<crash type=\"crt terminate\" timestamp=\"12345\">"))
      << xml;
  std::string const dump = crashtest::readFile(folder.file("crash-0000012345-minidump.mdmp"));
  ASSERT_GE(dump.size(), 32u);
  EXPECT_EQ("MDMP", dump.substr(0, 4));
  EXPECT_EQ(0xA793u, readU32(dump, 4) & 0xFFFF);
  std::set<std::uint32_t> const types = streamTypes(dump);
  for (std::uint32_t type : {3u /* threads */, 4u /* modules */, 7u /* system */})
    EXPECT_EQ(1u, types.count(type)) << type;
  EXPECT_NE(std::string::npos, crashtest::readFile(folder.file("log.xml")).find("<summary>App crashed.</summary>"));
  // No minidump and no log when not asked for.
  TempFolder bare("handler-no-dump");
  info.init(CCrashInfo::kCRTPureCall, 7);
  newP<CCrashHandler>(bare.qoPath(), String(), WinPath(), false)->handleCrash(info, tools);
  EXPECT_EQ(std::vector<std::string>{"crash-0000000007-info.xml"}, bare.names());
}

TEST(CCrashHandlerTest, PadsTheTimeToTenDigits) {
  TempFolder folder("handler-base");
  CCrashHandler handler(folder.qoPath(), String(), WinPath(), false);
  std::string const prefix = crashtest::utf8(CCrashHandler::Path(folder.qoPath()).toString().toWString().c_str());
  struct Case {
    long long time;
    char const* name;
  } const cases[] = {{0, "crash-0000000000"},
                     {12345, "crash-0000012345"},
                     {-5, "crash--0000000005"},
                     {9999999999LL, "crash-9999999999"},
                     {12345678901LL, "crash-12345678901"},
                     {LLONG_MIN, "crash--9223372036854775808"}};
  wchar_t buffer[CCrashTools::kPathCapacity];
  for (Case const& c : cases) {
    SCOPED_TRACE(c.name);
    int const length = handler.buildBaseName(buffer, CCrashTools::kPathCapacity, c.time);
    std::string const text = crashtest::utf8(buffer);
    EXPECT_EQ(static_cast<int>(String(buffer).length()), length);
    ASSERT_GT(text.size(), std::string(c.name).size());
    EXPECT_EQ(c.name, text.substr(text.size() - std::string(c.name).size()));
    EXPECT_EQ(prefix, text.substr(0, prefix.size()));
  }
  EXPECT_EQ(-1, handler.buildBaseName(buffer, static_cast<int>(prefix.size()) + 10, 1));
}

TEST(CCrashHandlerTest, CreatesTheMissingFolderAndRefusesAFile) {
  TempFolder folder("handler-folder");
  CCrashHandler nested(folder.qoPath("a\\b\\c"), String(), WinPath(), false);
  EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "a" / "b" / "c"));
  crashtest::writeFile(folder.file("file"), "x");
  try {
    CCrashHandler refused(folder.qoPath("file"), String(), WinPath(), false);
    FAIL() << "no error";
  } catch (CSystemError const& e) {
    EXPECT_EQ(String(u"Error creating the crash folder."), e.getMessage());
    EXPECT_EQ(folder.qoPath("file").toString(), e.getParams().lookup(u"path"));
  }
}

}  // namespace
}  // namespace qo

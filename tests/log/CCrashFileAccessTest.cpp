#include "qo/log/CCrashFileAccess.h"

#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>

#include "log/CrashTestSupport.h"
#include "qo/log/CCrashTools.h"

namespace qo {
namespace {

using crashtest::TempFolder;

// Runs write against a fresh file and returns the bytes it produced.
std::string written(TempFolder const& folder, std::function<void(CCrashFileAccess&)> const& write) {
  wchar_t path[CCrashTools::kPathCapacity];
  CCrashTools::fsStringCopy(path, CCrashTools::kPathCapacity, folder.qoPath("out.txt").toString());
  CCrashFileAccess file;
  EXPECT_TRUE(file.open(path, CCrashFileAccess::kCreate));
  write(file);
  EXPECT_TRUE(file.close());
  return crashtest::readFile(folder.file("out.txt"));
}

class CCrashFileAccessTest : public ::testing::Test {
protected:
  void SetUp() override { std::filesystem::create_directories(m_folder.path()); }
  TempFolder m_folder{::testing::UnitTest::GetInstance()->current_test_info()->name()};
};

TEST_F(CCrashFileAccessTest, EscapesFourEntitiesAndWritesWideTextAsUTF8) {
  EXPECT_EQ("a&amp;b&lt;c&gt;d&quot;e'f",
            written(m_folder, [](CCrashFileAccess& f) { f.writeEscaped("a&b<c>d\"e'f"); }));
  EXPECT_EQ("&amp;&lt;&gt;&quot;'", written(m_folder, [](CCrashFileAccess& f) { f.writeEscaped(L"&<>\"'"); }));
  EXPECT_EQ("x\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80",
            written(m_folder, [](CCrashFileAccess& f) { f.writeEscaped(L"x\u00E9\u4E2D\U0001F600"); }));
  if (sizeof(wchar_t) == 2) {
    wchar_t const lone[] = {static_cast<wchar_t>(0xD800), L'a', 0};
    EXPECT_EQ("\xEF\xBF\xBD" "a", written(m_folder, [&](CCrashFileAccess& f) { f.writeEscaped(lone); }));
  }
}

TEST_F(CCrashFileAccessTest, WritesNumbersAndAddresses) {
  struct Case {
    long long value;
    char const* text;
  } const cases[] = {{0, "0"}, {1, "1"}, {-1, "-1"}, {LLONG_MAX, "9223372036854775807"},
                     {LLONG_MIN, "-9223372036854775808"}};
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.text, written(m_folder, [&](CCrashFileAccess& f) { f.writeInt64String(c.value); }));
  }
  EXPECT_EQ("0x0000000000000000;0x00000000deadbeef;0xffffffffffffffff", written(m_folder, [](CCrashFileAccess& f) {
              for (unsigned long long a : {0ull, 0xDEADBEEFull, ~0ull}) {
                if (a != 0) f.writeStringRaw(";");
                f.writeAddressString(a);
              }
            }));
  EXPECT_EQ(std::string("\x08\x07\x06\x05\x04\x03\x02\x01", 8),
            written(m_folder, [](CCrashFileAccess& f) { f.writeInt64Binary(0x0102030405060708LL); }));
}

TEST_F(CCrashFileAccessTest, IndentsTagsByTwoSpacesPerLevel) {
  std::string const xml = written(m_folder, [](CCrashFileAccess& f) {
    f.writeXMLHeader();
    f.writeOpeningTag("a", false, "k=\"v\"");
    f.writeStringElement("s", "x<y");
    f.writeOpeningTag("b", true);
    f.writeEmptyTag("e", true);
    f.writeTagStart("m", true);
    f.writeAttribute("n", L"\"q\"");
    f.writeInt64Attribute("i", -7);
    f.writeAddressAttribute("p", 16);
    f.writeTagEnd(true);
    f.writeInt64Element("l", 42);
    f.writeClosingTag("b", true);
    f.writeAddressElement("addr", 255);
    f.writeClosingTag("a", true);
  });
  EXPECT_EQ("<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
            "<a k=\"v\">\n"
            "  <s>x&lt;y</s>\n"
            "  <b>\n"
            "    <e />\n"
            "    <m n=\"&quot;q&quot;\" i=\"-7\" p=\"0x0000000000000010\" />\n"
            "    <l>42</l>\n"
            "  </b>\n"
            "  <addr>0x00000000000000ff</addr>\n"
            "</a>",
            xml);
}

TEST_F(CCrashFileAccessTest, BuffersLargeWritesAndAppendsAtTheEnd) {
  std::string big(10000, 'x');
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>('a' + i % 26);
  EXPECT_EQ(big, written(m_folder, [&](CCrashFileAccess& f) {
              EXPECT_TRUE(f.write(big.data(), static_cast<int>(big.size())));
              EXPECT_EQ(10000, f.getPosition());
            }));
  wchar_t path[CCrashTools::kPathCapacity];
  CCrashTools::fsStringCopy(path, CCrashTools::kPathCapacity, m_folder.qoPath("out.txt").toString());
  CCrashFileAccess file;
  ASSERT_TRUE(file.open(path, CCrashFileAccess::kAppend));
  EXPECT_EQ(10000, file.getPosition());
  file.writeStringRaw("END");
  EXPECT_TRUE(file.close());
  ASSERT_TRUE(file.open(path, CCrashFileAccess::kRead));
  std::string back(10010, '\0');
  int total = 0;
  for (int n; (n = file.read(&back[total], 4096)) > 0;) total += n;
  EXPECT_EQ(big + "END", back.substr(0, static_cast<std::size_t>(total)));
}

TEST_F(CCrashFileAccessTest, FailuresAreRememberedNotThrown) {
  CCrashFileAccess file;
  EXPECT_FALSE(file.write("x", 1));
  wchar_t path[CCrashTools::kPathCapacity];
  CCrashTools::fsStringCopy(path, CCrashTools::kPathCapacity, m_folder.qoPath("missing.txt").toString());
  EXPECT_FALSE(file.open(path, CCrashFileAccess::kRead));
  EXPECT_TRUE(file.hasFailed());
  EXPECT_FALSE(file.isOpen());
  CCrashTools::fsStringCopy(path, CCrashTools::kPathCapacity, m_folder.qoPath("no\\such\\folder\\x.txt").toString());
  EXPECT_FALSE(file.open(path, CCrashFileAccess::kCreate));
  EXPECT_EQ(-1, file.read(path, 4));
}

}  // namespace
}  // namespace qo

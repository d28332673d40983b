#include "qo/fs/CWindowsPathTraits.h"

#include <gtest/gtest.h>

#include "qo/core/CBadPathError.h"
#include "qo/core/String.h"

namespace qo {
namespace {

using W = CWindowsPathTraits;

String repeat(char16_t c, std::size_t count) { return String(count, c); }

TEST(CWindowsPathTraitsTest, SeparatorsAndFlags) {
  EXPECT_EQ(W::getSepChar(), u'\\');
  EXPECT_EQ(W::getSep(), String(u"\\"));
  EXPECT_EQ(W::getAllSeps(), String(u"\\/"));
  EXPECT_TRUE(W::isSep(u'\\'));
  EXPECT_TRUE(W::isSep(u'/'));
  EXPECT_FALSE(W::isSep(u':'));
  EXPECT_FALSE(W::isCaseSensitive());
  EXPECT_TRUE(W::isNativePathType());
  // The shared instance, not a fresh copy per call.
  EXPECT_EQ(&W::getSep(), &W::getSep());
  EXPECT_EQ(&W::getAllSeps(), &W::getAllSeps());
}

TEST(CWindowsPathTraitsTest, InvalidCharsHoldControlsWithoutTabThenPunctuationThenNul) {
  String expected;
  for (char16_t c = 1; c < 0x20; ++c)
    if (c != u'\t') expected += c;
  expected += u"\\:*?\"<>|/" + String(1, u'\0');
  String const& chars = W::getDefaultFSInvalidComponentChars();
  EXPECT_EQ(chars, expected);
  EXPECT_EQ(chars.length(), 30u + 10u);
  EXPECT_EQ(&chars, &W::getDefaultFSInvalidComponentChars());
}

TEST(CWindowsPathTraitsTest, IsAbsolute) {
  struct Case { char16_t const* text; bool absolute; } const cases[] = {
      {u"", false}, {u"C:\\", true}, {u"C:/x", true}, {u"z:\\a", true}, {u"C:", false}, {u"C:foo", false},
      {u"\\\\server\\share\\x", true}, {u"//server/share", false}, {u"\\\\", true}, {u"\\\\?\\C:\\x", true},
      {u"\\\\.\\PhysicalDrive0", true}, {u"\\??\\C:\\x", true}, {u"\\??", true}, {u"\\x", false}, {u"x", false},
      {u"1:\\x", false}, {u"..\\x", false},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text));
    EXPECT_EQ(W::isAbsolute(c.text), c.absolute);
  }
}

TEST(CWindowsPathTraitsTest, RootLengthOfEachRootForm) {
  struct Case { char16_t const* text; int length; } const cases[] = {
      {u"C:\\", 3}, {u"c:/x\\y", 3}, {u"\\\\server\\share\\x", 14}, {u"\\\\server\\share", 14}, {u"\\\\server", 8},
      {u"\\\\server\\", 8}, {u"\\\\?\\C:\\x", 7}, {u"\\\\?\\C:", 6}, {u"\\\\.\\C:\\x", 7}, {u"\\??\\C:\\x", 7},
      {u"\\\\?\\UNC\\srv\\share\\x", 17}, {u"\\\\?\\unc\\srv", 11}, {u"\\??\\UNC\\srv\\share\\x", 17},
      {u"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}\\dir", 49},
      {u"\\\\?\\Volume{01234567-89ab-cdef-0123-456789abcdef}", 48},
      {u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1\\Windows", 48},
      {u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolumeShadowCopy1", 47}, {u"\\\\.\\PhysicalDrive0", 18},
      {u"\\\\.\\pipe\\name", 9}, {u"\\x\\y", -1}, {u"x\\y", -1}, {u"", -1}, {u"..", -1},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.text));
    int rootEnd = -99;
    EXPECT_EQ(W::getRootLength(c.text, &rootEnd), c.length);
    EXPECT_EQ(rootEnd, c.length);
    EXPECT_EQ(W::getRootLength(c.text), c.length);
  }
}

TEST(CWindowsPathTraitsTest, DriveWithoutSeparatorIsRefusedWithTheWholeText) {
  for (char16_t const* text :
       {u"C:", u"C:x", u"c:foo\\bar", u"\\\\?\\C:x", u"\\\\", u"\\\\\\", u"\\\\?\\", u"\\\\?\\UNC", u"\\\\?\\unc\\",
        u"\\??", u"\\??x\\y", u"\\\\.", u"\\\\srv\\..\\x", u"\\\\?\\..\\x", u"\\\\?\\UNC\\.\\share"}) {
    SCOPED_TRACE(String(text));
    try {
      W::getRootLength(text);
      ADD_FAILURE() << "no error";
    } catch (CBadPathError const& e) {
      EXPECT_EQ(e.getMessage(), u"Invalid path: " + String(text));
      EXPECT_EQ(e.getErrorCode(), -1);
      EXPECT_EQ(e.getParams().getSize(), 0);
    }
  }
}

TEST(CWindowsPathTraitsTest, ReservedDeviceNamesInAnyCaseWithExtensionsAndTrailingDotsOrSpaces) {
  struct Case {
    char16_t const* name;
    bool reserved;
  } const cases[] = {
      {u"CON", true},       {u"prn", true},      {u"Aux", true},       {u"nUl", true},        {u"COM1", true},
      {u"com9", true},      {u"LPT1", true},     {u"lpt9", true},      {u"con.txt", true},    {u"NUL.tar.gz", true},
      {u"con.", true},      {u"con ", true},     {u"aux. .", true},    {u"prn .txt", true},   {u"com\u00B9", true},
      {u"LPT\u00B3.x", true}, {u"con:stream", true}, {u"", false},      {u"console", false},   {u"xcon", false},
      {u"com10", false},    {u"COM0", false},    {u"lpt", false},      {u"a.con", false},     {u" con", false},
      {u"con_", false},     {u"nul1", false},    {u"com\u00B4", false},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.name).toUTF8());
    EXPECT_EQ(W::isReservedDeviceName(c.name), c.reserved);
    // Anywhere in a path, behind either separator.
    String const path = String(u"C:\\dir/") + c.name + u"\\x";
    EXPECT_EQ(W::findReservedDeviceName(path), c.reserved ? String(c.name) : String());
  }
  EXPECT_EQ(W::findReservedDeviceName(u"\\\\srv\\share\\a.txt"), String());
}

TEST(CWindowsPathTraitsTest, FindNextComponentSkipsSeparatorRuns) {
  String const text = u"a\\\\\\b/c\\";
  int start = 0, end = 0;
  for (int expected : {0, 4, 6}) {
    ASSERT_TRUE(W::findNextComponent(text, end, start, end));
    EXPECT_EQ(start, expected);
    EXPECT_EQ(end, expected + 1);
  }
  EXPECT_FALSE(W::findNextComponent(text, end, start, end));
  EXPECT_EQ(start, -1);
  EXPECT_EQ(end, -1);
  start = end = 0;
  EXPECT_FALSE(W::findNextComponent(String(), 0, start, end));
  EXPECT_EQ(start, -1);
  EXPECT_EQ(end, -1);
  ASSERT_TRUE(W::findNextComponent(text, 5, start, end));  // from a separator
  EXPECT_EQ(start, 6);
}

TEST(CWindowsPathTraitsTest, NormalizeSeparatorsRootAndComponent) {
  String text = u"C:/a\\b//c/";
  W::normalizeSeparators(text);
  EXPECT_EQ(text, String(u"C:\\a\\b\\\\c\\"));
  String component = u"Name. ";
  W::normalizeComponent(component);
  EXPECT_EQ(component, String(u"Name. "));
  // Each root form gets one spelling.
  struct Case { char16_t const* in; char16_t const* out; } const cases[] = {
      {u"\\\\?\\C:\\Dir", u"C:\\Dir"}, {u"\\\\.\\d:\\Dir", u"d:\\Dir"}, {u"\\??\\C:\\Dir", u"C:\\Dir"},
      {u"\\??\\Volume{AB}\\X", u"\\\\?\\volume{ab}\\x"}, {u"\\\\?\\UNC\\Srv\\Share\\Dir", u"\\\\srv\\Share\\Dir"},
      {u"\\\\?\\unc\\Srv\\Share", u"\\\\srv\\Share"}, {u"\\??\\UnC\\Srv\\Share\\Dir", u"\\\\srv\\Share\\Dir"},
      {u"\\\\SERVER\\Share\\Dir", u"\\\\server\\Share\\Dir"}, {u"\\\\SERVER", u"\\\\server"},
      {u"\\\\A", u"\\\\A"},  // three characters: left alone
      {u"\\\\?\\Volume{AB-CD}\\Dir\\File", u"\\\\?\\volume{ab-cd}\\dir\\file"},
      {u"\\\\.\\PhysicalDrive0", u"\\\\.\\physicaldrive0"},
      {u"\\\\?\\C:", u"C:"}, {u"\\\\.\\c:", u"c:"},  // any drive form loses the prefix
      {u"C:\\Dir", u"C:\\Dir"}, {u"c:\\Dir", u"c:\\Dir"}, {u"rel\\Dir", u"rel\\Dir"},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.in));
    String text = c.in;
    W::normalizeRoot(text);
    EXPECT_EQ(text, String(c.out));
  }
}

TEST(CWindowsPathTraitsTest, LongPrefixFrom247Characters) {
  String const p246 = u"C:\\" + repeat(u'a', 243);
  String const p247 = u"C:\\" + repeat(u'a', 244);
  ASSERT_EQ(p246.length(), 246u);
  EXPECT_FALSE(W::mustAddLongPathPrefix(p246));
  EXPECT_TRUE(W::mustAddLongPathPrefix(p247));
  EXPECT_FALSE(W::mustAddLongPathPrefix(repeat(u'a', 400)));  // relative
  EXPECT_FALSE(W::mustAddLongPathPrefix(u"\\x" + repeat(u'a', 400)));
  EXPECT_FALSE(W::mustAddLongPathPrefix(u"\\\\?\\C:\\" + repeat(u'a', 400)));
  EXPECT_FALSE(W::mustAddLongPathPrefix(u"\\\\.\\C:\\" + repeat(u'a', 400)));
  EXPECT_FALSE(W::mustAddLongPathPrefix(u"\\??\\C:\\" + repeat(u'a', 400)));

  auto finalized = [](String text) { return W::finalizeNormalizedPath(text), text; };
  auto prefixed = [](String text) { return W::addLongPathPrefix(text), text; };
  EXPECT_EQ(finalized(p246), p246);
  EXPECT_EQ(finalized(p247), u"\\\\?\\" + p247);
  EXPECT_EQ(prefixed(u"C:\\x"), String(u"\\\\?\\C:\\x"));
  EXPECT_EQ(prefixed(u"\\\\srv\\share\\x"), String(u"\\\\?\\unc\\srv\\share\\x"));
  String const longUnc = u"\\\\srv\\share\\" + repeat(u'b', 300 - 12);
  ASSERT_EQ(longUnc.length(), 300u);
  EXPECT_EQ(finalized(longUnc), u"\\\\?\\unc\\srv\\share\\" + repeat(u'b', 288));
}

TEST(CWindowsPathTraitsTest, PathNeedsToBeNormalizedToBeValid) {
  struct Case { String text; bool needs; } const cases[] = {
      {u"\\\\?\\C:\\a\\..\\b", true}, {u"C:\\a\\..\\b", false}, {u"\\\\?\\C:\\a\\.\\b", true},
      {u"\\\\?\\C:\\a/b", true}, {u"\\\\?\\C:\\a\\.", true}, {u"\\\\?\\C:\\a\\..", true}, {u"\\\\?\\C:\\a\\b", false},
      {u"\\\\?\\C:\\a\\...\\b", false}, {u"C:\\" + repeat(u'a', 244), true}, {u"C:\\" + repeat(u'a', 243), false},
      {u"", false},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(W::pathNeedsToBeNormalizedToBeValid(c.text), c.needs);
  }
}

TEST(CWindowsPathTraitsTest, ToAPIPathKeepsATrailingSpaceWithTheLongPrefix) {
  struct Case { char16_t const* in; char16_t const* out; } const cases[] = {
      {u"C:\\dir\\name ", u"\\\\?\\C:\\dir\\name "}, {u"C:\\dir\\name  ", u"\\\\?\\C:\\dir\\name  "},
      // The platform's full-path service resolves the text first.
      {u"C:\\dir\\..\\name ", u"\\\\?\\C:\\name "}, {u"C:/a/./b//name ", u"\\\\?\\C:\\a\\b\\name "},
      {u"C:\\..\\..\\name ", u"\\\\?\\C:\\name "}, {u"C:\\a.\\name ", u"\\\\?\\C:\\a\\name "},
      {u"C:\\a\\name. ", u"\\\\?\\C:\\a\\name. "}, {u"\\\\srv\\share\\..\\..\\name ", u"\\\\?\\unc\\srv\\share\\name "},
      {u"\\\\srv\\share\\name ", u"\\\\?\\unc\\srv\\share\\name "},
      {u"\\\\?\\C:\\dir\\name ", u"\\\\?\\C:\\dir\\name "},  // already literal
      {u"C:\\dir\\name", u"C:\\dir\\name"},  // no trailing space: unchanged
      {u"C:\\dir\\name.", u"C:\\dir\\name."}, {u"", u""},
  };
  for (Case const& c : cases) {
    SCOPED_TRACE(String(c.in));
    EXPECT_EQ(W::toAPIPath(c.in), String(c.out));
  }
}

}  // namespace
}  // namespace qo
